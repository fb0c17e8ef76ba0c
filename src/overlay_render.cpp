// The overlay's picture: header, status line and captions, painted as a whole and handed to the
// layered window. Stores the geometry that pointer input asks for.
#include "dpi.h"
#include "overlay_window.h"
#include "theme.h"

#include <algorithm>
#include <cmath>

using namespace Gdiplus;
using namespace Gdiplus::DllExports;

namespace {

constexpr BYTE kOpacity = 220; // of 255, of the whole overlay

constexpr ARGB kBackground = 0xFF0E0E16;
constexpr ARGB kLine = 0x1EFFFFFF; // under the header, and the toolbar's separators
constexpr ARGB kLiveDot = 0xFF3DDC84;
constexpr ARGB kLiveHalo = 0x1C3DDC84;
constexpr ARGB kIdleDot = 0x468888AA;
constexpr ARGB kTitle = 0xBEFFFFFF;
constexpr ARGB kStatus = 0x73FFFFFF;
constexpr ARGB kStatusError = 0xDCFF6B6B;
constexpr ARGB kAccent = 0x5AA5C3FF;
constexpr ARGB kTrack = 0x12FFFFFF;
constexpr ARGB kThumb = 0x5AFFFFFF;
constexpr ARGB kThumbDragged = 0xA0FFFFFF;

struct CardColours {
    ARGB card;
    ARGB original;
    ARGB translated;
};
constexpr CardColours kFinalCard = {0x12FFFFFF, 0x82A5C3FF, 0xF0EFEFEF};
constexpr CardColours kPendingCard = {0x06FFFFFF, 0x55A5C3FF, 0xAAEFEFEF};

// A text stands this far from its card's left edge, and is narrower than the card by so much.
constexpr float kCardTextLeft = 10.0F;
constexpr float kCardTextInset = 14.0F;

constexpr float kTitlePoints = 11.0F;
constexpr float kStatusPoints = 10.5F;
constexpr float kOriginalPoints = 10.5F;
constexpr float kTranslatedPoints = 12.5F;

FontOwner TextFont(float points) {
    return MakeFont(theme::kTextFamily, points, FontStyleRegular);
}
FontOwner IconFont(float points) {
    return MakeFont(theme::kIconFamily, points, FontStyleRegular);
}

// Icons and other characters, each run as long as it goes.
std::vector<WideView> SplitIconRuns(WideView text) {
    std::vector<WideView> runs;
    while (!text.empty()) {
        const bool icons = theme::IsIcon(text.front());
        const auto end = std::find_if(text.begin(), text.end(),
                                      [icons](WCHAR c) { return theme::IsIcon(c) != icons; });
        const auto length = static_cast<std::size_t>(end - text.begin());
        runs.push_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    return runs;
}

// ---- A toolbar button ---------------------------------------------------------------------------

struct ButtonColours {
    ARGB fill;
    ARGB outline;
    ARGB glyph;
};

// Nothing behind the glyph where fill and outline are 0.
constexpr ButtonColours ColoursOf(bool active, bool hovered, bool pressed) {
    if (pressed) {
        return active ? ButtonColours{0x783DDC84, 0xE63DDC84, 0xF53DDC84}
                      : ButtonColours{0x46A0A0C8, 0x82FFFFFF, 0xE1FFFFFF};
    }
    if (active) {
        return hovered ? ButtonColours{0x553DDC84, 0xC83DDC84, 0xF53DDC84}
                       : ButtonColours{0x373DDC84, 0x963DDC84, 0xF53DDC84};
    }
    return hovered ? ButtonColours{0xFF282840, 0x50FFFFFF, 0xE1FFFFFF}
                   : ButtonColours{0, 0, 0x9BFFFFFF};
}

void DrawToolbarButton(GpGraphics* graphics, const ToolbarLayout::Button& button, float y,
                       float size, bool active, bool hovered, bool pressed) {
    const float s = size / 26.0F;
    const float x = button.x;
    const ButtonColours colours = ColoursOf(active, hovered, pressed);
    if (colours.fill != 0) {
        const PathOwner shape = MakeRoundedRect({x, y, size, size}, s * 6.0F);
        GdipFillPath(graphics, MakeBrush(colours.fill).get(), shape.get());
        GdipDrawPath(graphics, MakePen(colours.outline, 1.0F).get(), shape.get());
    }
    // The size is in the button's own pixels, whatever the font's points are worth here.
    const float points = button.glyphSize * s * 96.0F / static_cast<float>(DpiScale);
    const FormatOwner centred = MakeTextFormat(StringAlignmentCenter, StringAlignmentCenter);
    DrawTextIn(graphics, {&button.glyph, 1}, IconFont(points).get(), colours.glyph,
               {x, y + 1.0F, size, size}, centred.get());
}

void DrawLine(GpGraphics* graphics, float x1, float y1, float x2, float y2) {
    GdipDrawLine(graphics, MakePen(kLine, 1.0F).get(), x1, y1, x2, y2);
}

void DrawLiveDot(GpGraphics* graphics, float headerHeight, bool lit) {
    const float x = F(10);
    const float y = headerHeight * 0.5F - F(4);
    GdipFillEllipse(graphics, MakeBrush(lit ? kLiveDot : kIdleDot).get(), x, y, F(8), F(8));
    if (lit) {
        GdipFillEllipse(graphics, MakeBrush(kLiveHalo).get(), x - F(2), y - F(2), F(12), F(12));
    }
}

void DrawTitle(GpGraphics* graphics, const RectF& area) {
    const FormatOwner format =
        MakeTextFormat(StringAlignmentNear, StringAlignmentCenter, StringFormatFlagsNoWrap);
    GdipSetStringFormatTrimming(format.get(), StringTrimmingEllipsisCharacter);
    DrawTextIn(graphics, TEXT("Kelvarin"), TextFont(kTitlePoints).get(), kTitle, area,
               format.get());
}

// Width of a card in a client area `width` pixels wide.
int CardWidth(int width) {
    return width - (S(4) + S(10) + 4) - S(10);
}

} // namespace

// ---- The pass -----------------------------------------------------------------------------------

void OverlayWindow::RenderOverlay(int width, int height) {
    const Canvas canvas(width, height);
    PaintOverlay(canvas.Graphics(), width, height);
    canvas.PushTo(hwnd_, kOpacity);
}

void OverlayWindow::PaintOverlay(GpGraphics* graphics, int width, int height) {
    const int headerHeight = S(kHeaderHeight);
    GdipFillRectangle(graphics, MakeBrush(kBackground).get(), 0, 0, static_cast<float>(width),
                      static_cast<float>(height));

    const auto headerBottom = static_cast<float>(headerHeight);
    GdipFillRectangle(
        graphics, MakeVerticalGradient(headerBottom, theme::kHeaderTop, theme::kHeaderBottom).get(),
        0, 0, static_cast<float>(width), headerBottom);

    DrawHeader(graphics, width);
    DrawLine(graphics, F(10), headerBottom, static_cast<float>(width - S(10)), headerBottom);

    statusHeight_ = 0;
    if (!status_.empty()) {
        DrawStatusLine(graphics, width);
    }
    DrawCaptions(graphics, width, height, headerHeight);
}

void OverlayWindow::DrawHeader(GpGraphics* graphics, int width) {
    const int headerHeight = S(kHeaderHeight);
    const ToolbarLayout layout = LayOutToolbar(width, headerHeight, isRunning_);
    DrawLiveDot(graphics, static_cast<float>(headerHeight), liveIndicator_);
    if (layout.titleWidth > 0) {
        DrawTitle(graphics,
                  {layout.titleLeft, 0, layout.titleWidth, static_cast<float>(headerHeight)});
    }
    const float b = layout.buttonSize;
    for (const float x : layout.separators) {
        DrawLine(graphics, x, layout.buttonTop + b * 0.2F, x, layout.buttonTop + b * 0.8F);
    }
    buttonRects_.clear();
    for (const ToolbarLayout::Button& button : layout.buttons) {
        const bool hovered = hoverButton_ == button.id;
        const bool pressed = hovered && pressedButton_ == button.id;
        DrawToolbarButton(graphics, button, layout.buttonTop, b, IsLit(button.id), hovered,
                          pressed);
        buttonRects_.push_back(layout.HitRect(button));
    }
}

// One line of text and icons, centred as a whole; it never wraps when drawn.
void OverlayWindow::DrawStatusLine(GpGraphics* graphics, int width) {
    const auto available = static_cast<float>(width - (2 * S(10) + 8));
    const auto left = static_cast<float>(S(10) + 4);
    const FontOwner textFont = TextFont(kStatusPoints);
    const FontOwner iconFont = IconFont(kStatusPoints);
    const FormatOwner measuring = MakeTextFormat(StringAlignmentNear, StringAlignmentNear);
    const float h =
        MeasureText(graphics, status_, {left, 0, available, 200}, textFont.get(), measuring.get())
            .Height;
    statusHeight_ = static_cast<int>(std::ceil(h)) + 14;

    struct PlacedRun {
        WideView text;
        GpFont* font;
        float width;
    };
    std::vector<PlacedRun> runs;
    float total = 0;
    for (const WideView run : SplitIconRuns(status_)) {
        GpFont* font = theme::IsIcon(run.front()) ? iconFont.get() : textFont.get();
        const float runWidth =
            MeasureText(graphics, run, {0, 0, 5000, h + 2}, font, measuring.get()).Width;
        runs.push_back({run, font, runWidth});
        total += runWidth;
    }
    const FormatOwner drawing = MakeTextFormat(StringAlignmentNear, StringAlignmentCenter);
    float x = left + available * 0.5F - total / 2.0F;
    for (const PlacedRun& run : runs) {
        DrawTextIn(graphics, run.text, run.font, statusIsError_ ? kStatusError : kStatus,
                   {x, static_cast<float>(S(kHeaderHeight) + 7), 5000, h + 2}, drawing.get());
        x += run.width;
    }
}

// ---- Captions -----------------------------------------------------------------------------------

void OverlayWindow::DrawCaptions(GpGraphics* graphics, int width, int height, int headerHeight) {
    const int top = headerHeight + (statusHeight_ > 0 ? statusHeight_ + 2 : 4);
    const int areaHeight = height - top - S(6) - 4;
    if (areaHeight <= 0) {
        return;
    }
    captionTop_ = top;
    captionHeight_ = areaHeight;
    const int cardWidth = CardWidth(width);
    MeasureCards(graphics, cardWidth);
    FollowNewest();
    DrawCards(graphics, {S(10), top, S(10) + cardWidth, top + areaHeight});
    if (contentHeight_ > static_cast<float>(areaHeight)) {
        DrawScrollBar(graphics, width);
    }
}

namespace {

// The fonts of a card's two texts.
struct CardFonts {
    FontOwner original = TextFont(kOriginalPoints);
    FontOwner translated = TextFont(kTranslatedPoints);
};

void DrawCard(GpGraphics* graphics, const CaptionEntry& caption, const CardTexts& texts,
              const RectF& card, bool showTranslation, const CardFonts& fonts) {
    const CardColours& colours = caption.pending ? kPendingCard : kFinalCard;
    FillRounded(graphics, colours.card, card, 7.0F);
    if (!caption.pending) {
        FillRounded(graphics, kAccent, {card.X, card.Y + 5.0F, 3.0F, card.Height - 10.0F}, 1.5F);
    }
    const FormatOwner format =
        MakeTextFormat(StringAlignmentNear, StringAlignmentNear, StringFormatFlagsLineLimit);
    const float x = card.X + kCardTextLeft;
    const float width = card.Width - kCardTextInset;
    float y = card.Y + 6.0F;
    if (!caption.original.empty()) {
        DrawTextIn(graphics, caption.original, fonts.original.get(), colours.original,
                   {x, y, width, texts.original + 2.0F}, format.get());
        y += texts.original + (texts.translated > 0 ? 4.0F : 0.0F);
    }
    if (showTranslation && !caption.translated.empty()) {
        DrawTextIn(graphics, caption.translated, fonts.translated.get(), colours.translated,
                   {x, y, width, texts.translated + 2.0F}, format.get());
    }
}

} // namespace

void OverlayWindow::MeasureCards(GpGraphics* graphics, int cardWidth) {
    const CardFonts fonts;
    // As wide as DrawCard lets a text be: a line that wraps there must have its height here.
    const RectF area(0, 0, static_cast<float>(cardWidth) - kCardTextInset, 2000);
    const auto measure = [&](const WideString& text, bool translation) {
        return MeasureTextHeight(graphics, text, area,
                                 (translation ? fonts.translated : fonts.original).get());
    };
    const std::lock_guard lock(captionsMutex_);
    cardHeights_.Update(captions_, {cardWidth, DpiScale, S(6), showTranslation_}, measure);
    contentHeight_ = cardHeights_.ContentHeight();
}

int OverlayWindow::MaxScrollOffset() const {
    return std::max(0, static_cast<int>(contentHeight_) - captionHeight_);
}

// The newest caption stays in view until the user leaves it.
void OverlayWindow::FollowNewest() {
    const int maxOffset = MaxScrollOffset();
    if (!scrolledUp_) {
        scrollOffset_ = maxOffset;
    }
    scrollOffset_ = std::clamp(scrollOffset_, 0, maxOffset);
}

// The cards in view, cut off at the area's edges.
void OverlayWindow::DrawCards(GpGraphics* graphics, const RECT& area) {
    const auto left = static_cast<float>(area.left);
    const auto cardWidth = static_cast<float>(area.right - area.left);
    GdipSetClipRect(graphics, left, static_cast<float>(area.top), cardWidth,
                    static_cast<float>(area.bottom - area.top), CombineModeReplace);
    const CardFonts fonts;
    {
        const std::lock_guard lock(captionsMutex_);
        const double above = static_cast<double>(area.top) - scrollOffset_;
        for (std::size_t i = cardHeights_.FirstEndingAt(scrollOffset_); i < captions_.size(); ++i) {
            const double y = above + cardHeights_.Top(i);
            if (y > area.bottom) {
                break;
            }
            const CaptionEntry& caption = captions_[i];
            if (caption.Empty()) {
                continue;
            }
            const CardTexts texts = cardHeights_.Texts(i);
            DrawCard(graphics, caption, texts,
                     {left, static_cast<float>(y), cardWidth, texts.CardHeight()}, showTranslation_,
                     fonts);
        }
    }
    GdipResetClip(graphics);
}

void OverlayWindow::DrawScrollBar(GpGraphics* graphics, int width) {
    const int barX = width - S(4) - 4;
    const auto x = static_cast<float>(barX);
    const float barWidth = F(4);
    const auto areaHeight = static_cast<float>(captionHeight_);
    trackTop_ = static_cast<float>(captionTop_ + 4);
    trackHeight_ = areaHeight - 8.0F;
    FillRounded(graphics, kTrack, {x, trackTop_, barWidth, trackHeight_}, barWidth * 0.5F);
    thumbHeight_ = std::max(areaHeight / contentHeight_ * trackHeight_, F(20));
    thumbTop_ = trackTop_;
    if (const int maxOffset = MaxScrollOffset(); maxOffset > 0) {
        thumbTop_ += static_cast<float>(scrollOffset_) / static_cast<float>(maxOffset) *
                     (trackHeight_ - thumbHeight_);
    }
    FillRounded(graphics, thumbDragging_ ? kThumbDragged : kThumb,
                {x, thumbTop_, barWidth, thumbHeight_}, barWidth * 0.5F);
    scrollHitX_ = barX - 4;
}
