#include "captions.h"

#include <algorithm>

void CardHeights::ChangedFrom(std::size_t index) {
    if (index < rows_.size()) {
        rows_.resize(index);
    }
    known_ = std::min(known_, index);
}

void CardHeights::Adopt(const Terms& terms, std::size_t count) {
    if (terms.cardWidth != terms_.cardWidth || terms.dpi != terms_.dpi) {
        rows_.clear();
        known_ = 0;
    }
    if (terms.showTranslation != terms_.showTranslation || terms.gap != terms_.gap) {
        known_ = 0; // the texts keep their heights, the cards do not
    }
    terms_ = terms;
    ChangedFrom(count);
    rows_.resize(count);
}

void CardHeights::Place(std::size_t index, const CaptionEntry& caption) {
    Row& row = rows_[index];
    row.end = Top(index);
    if (!caption.Empty()) {
        row.end += static_cast<double>(Texts(index).CardHeight() + static_cast<float>(terms_.gap));
    }
}

CardTexts CardHeights::Texts(std::size_t index) const {
    const Row& row = rows_[index];
    return {row.original, terms_.showTranslation ? row.translated : 0};
}

float CardHeights::ContentHeight() const {
    const double all = rows_.empty() ? 0 : rows_.back().end;
    return all > 0 ? static_cast<float>(all - terms_.gap) : 0;
}

std::size_t CardHeights::FirstEndingAt(double y) const {
    const auto first =
        std::lower_bound(rows_.begin(), rows_.end(), y,
                         [this](const Row& row, double top) { return row.end - terms_.gap < top; });
    return static_cast<std::size_t>(first - rows_.begin());
}
