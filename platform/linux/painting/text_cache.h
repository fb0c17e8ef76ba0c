// What came of laying texts out before: a picture is drawn anew from texts that hardly ever change,
// and laying them out is what takes the time.
#pragma once

#include "painting/text_layout.h"

#include <cstddef>
#include <functional>
#include <iterator>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace painting {

// All that a layout depends on.
struct LayoutQuestion {
    std::u16string_view text;
    std::shared_ptr<const Face> face;
    float width = 0; // pixels
    int lines = 0;   // at most
    bool wrap = true;
    bool ellipsis = false;
    bool leftToRight = false;

    bool operator==(const LayoutQuestion&) const = default;
};

inline LayoutQuestion QuestionOf(std::u16string_view text, const std::shared_ptr<const Face>& face,
                                 const LayoutLimits& limits) {
    return {text,
            face,
            static_cast<float>(limits.width),
            limits.lines,
            limits.wrap,
            limits.ellipsis,
            limits.leftToRight};
}

inline std::size_t HashOf(const LayoutQuestion& question) {
    const auto mixIn = [](std::size_t hash, std::size_t value) {
        return (hash ^ value) * 0x9E3779B97F4A7C15U; // spreads small values over all bits
    };
    std::size_t hash = std::hash<std::u16string_view>()(question.text);
    hash = mixIn(hash, std::hash<const Face*>()(question.face.get()));
    hash = mixIn(hash, std::hash<float>()(question.width));
    const auto lines = static_cast<std::size_t>(question.lines);
    return mixIn(hash, lines * 8 + (question.leftToRight ? 4 : 0) + (question.wrap ? 2 : 0) +
                           (question.ellipsis ? 1 : 0));
}

// Answers to such questions, of which those that were not needed for the longest are forgotten. An
// answer takes about `answerBytes`, and `unitBytes` for each unit of its text. Used by the thread
// that has the windows.
template <typename Answer>
class TextCache {
public:
    TextCache(std::size_t mostBytes, std::size_t answerBytes, std::size_t unitBytes)
        : mostBytes_(mostBytes), answerBytes_(answerBytes), unitBytes_(unitBytes) {}

    // Null when it is not known. Valid until the next Add or Clear.
    const Answer* Find(const LayoutQuestion& question) {
        const auto found = byHash_.find(HashOf(question));
        if (found == byHash_.end() || found->second->question != question) {
            return nullptr;
        }
        entries_.splice(entries_.begin(), entries_, found->second);
        return &found->second->answer;
    }

    // Returns false for a text so long that it would push out too many others.
    bool Add(const LayoutQuestion& question, Answer answer) {
        constexpr std::size_t kLeastEntries = 16;
        const std::size_t bytes = BytesFor(question.text);
        if (bytes > mostBytes_ / kLeastEntries) {
            return false;
        }
        const std::size_t hash = HashOf(question);
        if (const auto former = byHash_.find(hash); former != byHash_.end()) {
            Remove(former->second);
        }
        while (bytes_ + bytes > mostBytes_) {
            Remove(std::prev(entries_.end()));
        }
        entries_.push_front({hash, std::u16string(question.text), question, std::move(answer)});
        entries_.front().question.text = entries_.front().text;
        byHash_.emplace(hash, entries_.begin());
        bytes_ += bytes;
        return true;
    }

    void Clear() {
        byHash_.clear();
        entries_.clear();
        bytes_ = 0;
    }

private:
    struct Entry {
        std::size_t hash;
        std::u16string text;
        LayoutQuestion question; // its text is the one above
        Answer answer;
    };
    using Entries = std::list<Entry>; // what was needed last comes first

    std::size_t BytesFor(std::u16string_view text) const {
        constexpr std::size_t kPlaceBytes = 64; // in the table, and the links of the list
        return sizeof(Entry) + kPlaceBytes + answerBytes_ +
               (sizeof(char16_t) + unitBytes_) * text.size();
    }

    void Remove(typename Entries::iterator entry) {
        bytes_ -= BytesFor(entry->text);
        byHash_.erase(entry->hash);
        entries_.erase(entry);
    }

    const std::size_t mostBytes_;
    const std::size_t answerBytes_;
    const std::size_t unitBytes_;
    std::size_t bytes_ = 0;
    Entries entries_;
    std::unordered_map<std::size_t, typename Entries::iterator> byHash_; // one entry for each hash
};

} // namespace painting
