// Rectangles, pictures and plain text drawn on contexts.
#include "painting/device_context.h"
#include "painting/gdi_objects.h"
#include "painting/numbers.h"
#include "painting/text_layout.h"

#include <wingdi.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <string_view>
#include <utility>

namespace painting {

namespace {

// Draws by itself, whoever else has graphics on the raster.
template <typename Drawing>
void DrawOn(Raster& raster, const Drawing& drawing) {
    raster.Enter();
    bool changed = false;
    if (QPainter* painter = raster.PainterFor(nullptr, &changed)) {
        painter->setClipping(false);
        drawing(*painter);
    }
    raster.Leave();
}

// ---- Pictures ---------------------------------------------------------------------------------

void CopyRow(const QRgb* source, QRgb* target, int pixels, bool opaque) {
    if (!opaque) {
        std::copy_n(source, pixels, target);
        return;
    }
    constexpr QRgb kOpaque = 0xFF000000U;
    std::transform(source, source + pixels, target, [](QRgb pixel) { return pixel | kOpaque; });
}

// `from` is where the pixel for the target's top left comes from.
void Copy(const QImage& source, QPoint from, QImage& target, const QRect& to, bool opaque) {
    // Of one picture, a row that is still to be read could have been written already.
    const bool same = &source == &target;
    const QImage part = same ? source.copy(QRect(from, to.size())) : QImage();
    const QImage& read = same ? part : source;
    const QPoint first = same ? QPoint() : from;
    for (int row = 0; row < to.height(); ++row) {
        const auto* line = reinterpret_cast<const QRgb*>(read.constScanLine(first.y() + row));
        auto* written = reinterpret_cast<QRgb*>(target.scanLine(to.y() + row));
        CopyRow(line + first.x(), written + to.x(), to.width(), opaque);
    }
}

// ---- Text -------------------------------------------------------------------------------------

constexpr int kMostLines = 4096; // no screen is as high

// A line's end is a blank where there is but one line.
std::u16string InOneLine(std::u16string_view text) {
    std::u16string line(text);
    std::replace_if(line.begin(), line.end(), EndsParagraph, u' ');
    return line;
}

// A text in its rectangle.
class PlainText {
public:
    PlainText(std::u16string_view text, std::shared_ptr<const Face> face, const QRect& area,
              UINT flags);

    int Top() const;
    int Height() const { return Lines() * face_->lineHeight; }
    int Width() const { return WholePixels(laidOut_->width); }
    void Draw(QPainter& painter, const TextState& state) const;

private:
    static int WholePixels(qreal width) { return static_cast<int>(std::ceil(width)); }
    bool Has(UINT flag) const { return (flags_ & flag) != 0; }
    // Nothing has a line, too.
    int Lines() const { return std::max(1, static_cast<int>(laidOut_->lines.size())); }
    LayoutLimits Limits() const;
    int LeftOf(int width) const;

    const std::shared_ptr<const Face> face_;
    const QRect area_;
    const UINT flags_;
    std::shared_ptr<const LaidOutText> laidOut_;
};

PlainText::PlainText(std::u16string_view text, std::shared_ptr<const Face> face, const QRect& area,
                     UINT flags)
    : face_(std::move(face)), area_(area), flags_(flags),
      laidOut_(Has(DT_SINGLELINE) && std::any_of(text.begin(), text.end(), EndsParagraph)
                   ? KnownLayout(InOneLine(text), face_, Limits())
                   : KnownLayout(text, face_, Limits())) {}

LayoutLimits PlainText::Limits() const {
    const bool single = Has(DT_SINGLELINE);
    const bool cut = Has(DT_END_ELLIPSIS) && !Has(DT_CALCRECT);
    const int most =
        cut ? std::clamp(area_.height() / face_->lineHeight, 1, kMostLines) : kMostLines;
    return {static_cast<qreal>(std::max(area_.width(), 0)), single ? 1 : most,
            Has(DT_WORDBREAK) && !single, cut, true};
}

int PlainText::Top() const {
    const bool centred = Has(DT_VCENTER) && Has(DT_SINGLELINE);
    return area_.y() + (centred ? (area_.height() - Height()) / 2 : 0);
}

int PlainText::LeftOf(int width) const {
    if (Has(DT_CENTER)) {
        return area_.x() + (area_.width() - width) / 2;
    }
    return Has(DT_RIGHT) ? area_.x() + area_.width() - width : area_.x();
}

void PlainText::Draw(QPainter& painter, const TextState& state) const {
    if (!Has(DT_NOCLIP)) {
        painter.setClipRect(area_);
    }
    painter.setPen(Opaque(state.colour));
    int top = Top();
    for (const TextLine& line : laidOut_->lines) {
        const int width = WholePixels(line.width);
        const int left = LeftOf(width);
        if (state.backgroundMode == OPAQUE) {
            painter.fillRect(left, top, width, face_->lineHeight, Opaque(state.background));
        }
        DrawLine(painter, line, left, top + face_->ascent);
        top += face_->lineHeight;
    }
}

std::u16string_view TextOf(LPCWSTR text, int length) {
    return length < 0 ? std::u16string_view(text)
                      : std::u16string_view(text, static_cast<std::size_t>(length));
}

} // namespace

} // namespace painting

using namespace painting;

int FillRect(HDC dc, const RECT* rectangle, HBRUSH brush) {
    const std::shared_ptr<Raster> raster = RasterOf(dc);
    const Brush* fill = BrushOf(brush);
    if (raster == nullptr || rectangle == nullptr || fill == nullptr) {
        return 0;
    }
    if (fill->colour) {
        DrawOn(*raster,
               [&](QPainter& painter) { painter.fillRect(RectOf(*rectangle), *fill->colour); });
    }
    return 1;
}

BOOL BitBlt(HDC dc, int x, int y, int width, int height, HDC source, int sourceX, int sourceY,
            DWORD operation) {
    const std::shared_ptr<Raster> to = RasterOf(dc);
    const std::shared_ptr<Raster> from = RasterOf(source);
    const auto number = [](int value) { return static_cast<float>(value); };
    if (to == nullptr || from == nullptr || operation != SRCCOPY ||
        !AreNumbers(number(x), number(y), number(width), number(height), number(sourceX),
                    number(sourceY))) {
        return FALSE;
    }
    const QPoint corner = QPoint(x, y) + to->Origin();
    const QPoint shift = QPoint(sourceX, sourceY) + from->Origin() - corner;
    const QRect seen = QRect(corner, QSize(std::max(width, 0), std::max(height, 0)))
                           .intersected(to->Part())
                           .intersected(from->Part().translated(-shift));
    if (!seen.isEmpty()) {
        // Qt leaves what it likes in the bits of an opaque picture that nobody looks at.
        const bool opaque = from->IsOpaque() || to->IsOpaque();
        Copy(*from->Picture(), seen.topLeft() + shift, *to->Picture(), seen, opaque);
    }
    return TRUE;
}

int DrawTextW(HDC dc, LPCWSTR text, int length, LPRECT rectangle, UINT flags) {
    const TextState* state = TextStateOf(dc);
    if (state == nullptr || text == nullptr || length < -1 || rectangle == nullptr) {
        return 0;
    }
    std::shared_ptr<const Face> face = state->face != nullptr ? state->face : StockFace();
    if (face == nullptr) {
        return 0;
    }
    const QRect area = RectOf(*rectangle);
    const PlainText plain(TextOf(text, length), std::move(face), area, flags);
    if ((flags & DT_CALCRECT) != 0) {
        rectangle->right = area.x() + plain.Width();
        rectangle->bottom = area.y() + plain.Height();
        return plain.Height();
    }
    if (const std::shared_ptr<Raster> raster = RasterOf(dc)) {
        DrawOn(*raster, [&](QPainter& painter) { plain.Draw(painter, *state); });
    }
    return plain.Top() - area.y() + plain.Height();
}
