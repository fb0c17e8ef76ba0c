// The captions of an overlay, and where their cards lie. Plain data and arithmetic: what measures a
// text and what paints a card is the caller's.
#pragma once

#include "wide_text.h"

#include <cstddef>
#include <vector>

// One caption pair.
struct CaptionEntry {
    WideString original;   // as recognised
    WideString translated; // may be empty
    bool pending = false;  // the service may still replace it; the newest entry alone can be

    bool Empty() const { return original.empty() && translated.empty(); }
};

// Heights of a card's two texts, in pixels; 0 for a text that is not shown.
struct CardTexts {
    float original = 0;
    float translated = 0;

    float Gap() const { return original > 0 && translated > 0 ? 4.0F : 0.0F; }
    float CardHeight() const { return original + 6.0F + Gap() + translated + 8.0F; }
};

// Remembers the heights of all cards between paints, so that a frame costs nothing for a caption
// outside the view however long the list has grown. It measures a text when the text is new or the
// cards have another width, and else never again.
class CardHeights {
public:
    // What the heights depend on besides the texts.
    struct Terms {
        int cardWidth = 0;
        int dpi = 0;
        int gap = 0; // between two cards
        bool showTranslation = true;
    };

    // Entries from this one on are new, or gone.
    void ChangedFrom(std::size_t index);

    // Brings the heights up to date with the list. `measure(text, translation)` gives the height
    // of a text that is not empty, in the translation's font or the original's.
    template <typename Measure>
    void Update(const std::vector<CaptionEntry>& captions, const Terms& terms,
                const Measure& measure) {
        Adopt(terms, captions.size());
        for (std::size_t i = known_; i < captions.size(); ++i) {
            Row& row = rows_[i];
            const CaptionEntry& caption = captions[i];
            if (row.original < 0) {
                row.original = caption.original.empty() ? 0 : measure(caption.original, false);
            }
            if (row.translated < 0 && terms_.showTranslation) {
                row.translated = caption.translated.empty() ? 0 : measure(caption.translated, true);
            }
            Place(i, caption);
        }
        known_ = captions.size();
    }

    // All cards and the gaps between them.
    float ContentHeight() const;
    // The first entry whose card ends at `y` or below it, counted from the top of the content.
    std::size_t FirstEndingAt(double y) const;
    // The heights of an entry's texts.
    CardTexts Texts(std::size_t index) const;
    // The top of an entry's card.
    double Top(std::size_t index) const { return index == 0 ? 0 : rows_[index - 1].end; }

private:
    struct Row {
        float original = -1; // of the texts; negative while not measured
        float translated = -1;
        double end = 0; // of the card and the gap below it; a float would round in long lists
    };

    void Adopt(const Terms& terms, std::size_t count);
    void Place(std::size_t index, const CaptionEntry& caption);

    Terms terms_;
    std::vector<Row> rows_;
    std::size_t known_ = 0; // rows that are placed; they are the first ones
};
