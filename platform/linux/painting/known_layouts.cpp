// Layouts kept for the few texts that are in view.
#include "painting/text_cache.h"
#include "painting/text_layout.h"

namespace painting {

namespace {

// The sizes of a layout and of each unit in it were measured with Qt 6.4.
TextCache<std::shared_ptr<const LaidOutText>>& Layouts() {
    constexpr std::size_t kMostBytes = std::size_t{1} << 20;
    constexpr std::size_t kLayoutBytes = 1152;
    constexpr std::size_t kUnitBytes = 40;
    static TextCache<std::shared_ptr<const LaidOutText>> layouts(kMostBytes, kLayoutBytes,
                                                                 kUnitBytes);
    return layouts;
}

} // namespace

std::shared_ptr<const LaidOutText> KnownLayout(std::u16string_view text,
                                               const std::shared_ptr<const Face>& face,
                                               const LayoutLimits& limits) {
    const LayoutQuestion question = QuestionOf(text, face, limits);
    if (const auto* known = Layouts().Find(question)) {
        return *known;
    }
    auto laidOut = std::make_shared<const LaidOutText>(LayOut(text, *face, limits));
    Layouts().Add(question, laidOut);
    return laidOut;
}

void ForgetLayouts() {
    Layouts().Clear();
}

} // namespace painting
