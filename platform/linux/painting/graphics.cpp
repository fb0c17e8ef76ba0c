// The graphics object and the shapes drawn on it.
#include "painting/graphics.h"

#include "painting/device_context.h"
#include "painting/drawing_objects.h"
#include "painting/numbers.h"

#include <QPolygonF>
#include <QTransform>

#include <algorithm>
#include <iterator>
#include <utility>

using painting::AreNumbers;
using painting::ColourOf;

namespace Gdiplus {

GpGraphics::GpGraphics(std::shared_ptr<painting::Raster> raster) : raster_(std::move(raster)) {
    if (raster_ != nullptr) {
        raster_->Enter();
    }
}

GpGraphics::~GpGraphics() {
    if (raster_ != nullptr) {
        raster_->Leave();
    }
}

QPainter* GpGraphics::Painter() {
    bool changed = false;
    QPainter* painter = raster_ == nullptr ? nullptr : raster_->PainterFor(this, &changed);
    if (painter == nullptr || (settled_ && !changed)) {
        return painter;
    }
    painter->setRenderHint(QPainter::Antialiasing, smooth_);
    if (clip_) {
        painter->setClipRect(*clip_);
    } else {
        painter->setClipping(false);
    }
    settled_ = true;
    return painter;
}

void GpGraphics::SetSmooth(bool smooth) {
    smooth_ = smooth;
    settled_ = false;
}

void GpGraphics::SetClip(std::optional<QRectF> clip) {
    clip_ = clip;
    settled_ = false;
}

namespace {

constexpr qreal kNearlyWhole = 1.0e-3;
constexpr qreal kToCentre = 0.5; // of a pixel

bool IsWhole(qreal number) {
    return std::abs(number - std::round(number)) < kNearlyWhole;
}

// Where an outline lies exactly on the borders between pixels, its pen would be smeared over both
// sides; it is drawn just inside then, so that it neither blurs nor leaves a picture of its size.
QPainterPath SharpOutline(const QPainterPath& path, qreal penWidth) {
    const QRectF box = path.boundingRect();
    if (!IsWhole(box.left()) || !IsWhole(box.top()) || !IsWhole(box.right()) ||
        !IsWhole(box.bottom()) || box.width() <= penWidth || box.height() <= penWidth) {
        return path;
    }
    QTransform shrink;
    shrink.translate(box.center().x(), box.center().y());
    shrink.scale((box.width() - penWidth) / box.width(), (box.height() - penWidth) / box.height());
    shrink.translate(-box.center().x(), -box.center().y());
    return shrink.map(path);
}

// Pixels have their centres at whole coordinates for a pen, so that a line of width 1 fills one row
// or column. Upright and level lines go to the nearest.
QLineF SharpLine(QLineF line) {
    if (line.x1() == line.x2()) {
        const qreal x = std::round(line.x1()) + kToCentre;
        return {x, line.y1(), x, line.y2()};
    }
    if (line.y1() == line.y2()) {
        const qreal y = std::round(line.y1()) + kToCentre;
        return {line.x1(), y, line.x2(), y};
    }
    return line.translated(kToCentre, kToCentre);
}

} // namespace

namespace DllExports {

GpStatus GdipCreateFromHDC(HDC dc, GpGraphics** graphics) {
    if (graphics == nullptr) {
        return InvalidParameter;
    }
    *graphics = nullptr;
    if (!painting::IsContext(dc)) {
        return InvalidParameter;
    }
    *graphics = std::make_unique<GpGraphics>(painting::RasterOf(dc)).release();
    return Ok;
}

GpStatus GdipDeleteGraphics(GpGraphics* graphics) {
    if (graphics == nullptr) {
        return InvalidParameter;
    }
    const std::unique_ptr<GpGraphics> owner(graphics);
    return Ok;
}

GpStatus GdipGraphicsClear(GpGraphics* graphics, ARGB colour) {
    if (graphics == nullptr) {
        return InvalidParameter;
    }
    QPainter* painter = graphics->Painter();
    if (painter == nullptr) {
        return GenericError;
    }
    painter->setCompositionMode(QPainter::CompositionMode_Source);
    painter->fillRect(painter->transform().inverted().mapRect(painter->viewport()),
                      ColourOf(colour));
    painter->setCompositionMode(QPainter::CompositionMode_SourceOver);
    return Ok;
}

GpStatus GdipSetSmoothingMode(GpGraphics* graphics, SmoothingMode mode) {
    if (graphics == nullptr) {
        return InvalidParameter;
    }
    graphics->SetSmooth(mode == SmoothingModeAntiAlias || mode == SmoothingModeHighQuality);
    return Ok;
}

GpStatus GdipSetTextRenderingHint(GpGraphics* graphics, TextRenderingHint /*hint*/) {
    return graphics == nullptr ? InvalidParameter : Ok;
}

GpStatus GdipSetClipRect(GpGraphics* graphics, REAL x, REAL y, REAL width, REAL height,
                         CombineMode mode) {
    if (graphics == nullptr || !AreNumbers(x, y, width, height)) {
        return InvalidParameter;
    }
    if (mode != CombineModeReplace) {
        return NotImplemented;
    }
    graphics->SetClip(QRectF(x, y, qMax(width, 0.0F), qMax(height, 0.0F)));
    return Ok;
}

GpStatus GdipResetClip(GpGraphics* graphics) {
    if (graphics == nullptr) {
        return InvalidParameter;
    }
    graphics->SetClip(std::nullopt);
    return Ok;
}

GpStatus GdipFillRectangle(GpGraphics* graphics, GpBrush* brush, REAL x, REAL y, REAL width,
                           REAL height) {
    if (graphics == nullptr || brush == nullptr || !AreNumbers(x, y, width, height)) {
        return InvalidParameter;
    }
    QPainter* painter = graphics->Painter();
    if (painter == nullptr) {
        return GenericError;
    }
    if (width > 0 && height > 0) {
        painter->fillRect(QRectF(x, y, width, height), brush->BrushFill().Brush());
    }
    return Ok;
}

GpStatus GdipFillEllipse(GpGraphics* graphics, GpBrush* brush, REAL x, REAL y, REAL width,
                         REAL height) {
    if (graphics == nullptr || brush == nullptr || !AreNumbers(x, y, width, height)) {
        return InvalidParameter;
    }
    QPainter* painter = graphics->Painter();
    if (painter == nullptr) {
        return GenericError;
    }
    if (width > 0 && height > 0) {
        painter->setPen(Qt::NoPen);
        painter->setBrush(brush->BrushFill().Brush());
        painter->drawEllipse(QRectF(x, y, width, height));
    }
    return Ok;
}

GpStatus GdipFillPath(GpGraphics* graphics, GpBrush* brush, GpPath* path) {
    if (graphics == nullptr || brush == nullptr || path == nullptr) {
        return InvalidParameter;
    }
    QPainter* painter = graphics->Painter();
    if (painter == nullptr) {
        return GenericError;
    }
    painter->fillPath(path->Path(), brush->BrushFill().Brush());
    return Ok;
}

GpStatus GdipFillPolygon(GpGraphics* graphics, GpBrush* brush, const GpPointF* points, INT count,
                         GpFillMode mode) {
    if (graphics == nullptr || brush == nullptr || points == nullptr || count <= 0 ||
        !std::all_of(points, points + count,
                     [](const GpPointF& point) { return AreNumbers(point.X, point.Y); })) {
        return InvalidParameter;
    }
    QPainter* painter = graphics->Painter();
    if (painter == nullptr) {
        return GenericError;
    }
    QPolygonF corners;
    std::transform(points, points + count, std::back_inserter(corners),
                   [](const GpPointF& point) { return QPointF(point.X, point.Y); });
    painter->setPen(Qt::NoPen);
    painter->setBrush(brush->BrushFill().Brush());
    painter->drawPolygon(corners, mode == FillModeWinding ? Qt::WindingFill : Qt::OddEvenFill);
    return Ok;
}

GpStatus GdipDrawPath(GpGraphics* graphics, GpPen* pen, GpPath* path) {
    if (graphics == nullptr || pen == nullptr || path == nullptr) {
        return InvalidParameter;
    }
    QPainter* painter = graphics->Painter();
    if (painter == nullptr) {
        return GenericError;
    }
    painter->strokePath(SharpOutline(path->Path(), pen->Pen().widthF()), pen->Pen());
    return Ok;
}

GpStatus GdipDrawRectangle(GpGraphics* graphics, GpPen* pen, REAL x, REAL y, REAL width,
                           REAL height) {
    if (graphics == nullptr || pen == nullptr || !AreNumbers(x, y, width, height)) {
        return InvalidParameter;
    }
    QPainter* painter = graphics->Painter();
    if (painter == nullptr) {
        return GenericError;
    }
    if (width > 0 && height > 0) {
        // What lies between two rectangles: Qt's own outline has pale corners.
        const qreal half = pen->Pen().widthF() / 2;
        const QRectF line = QRectF(x, y, width, height).translated(kToCentre, kToCentre);
        const QRectF inside = line.adjusted(half, half, -half, -half);
        QPainterPath outline;
        outline.addRect(line.adjusted(-half, -half, half, half));
        if (inside.isValid()) {
            outline.addRect(inside);
        }
        painter->fillPath(outline, pen->Pen().brush());
    }
    return Ok;
}

GpStatus GdipDrawLine(GpGraphics* graphics, GpPen* pen, REAL x1, REAL y1, REAL x2, REAL y2) {
    if (graphics == nullptr || pen == nullptr || !AreNumbers(x1, y1, x2, y2)) {
        return InvalidParameter;
    }
    QPainter* painter = graphics->Painter();
    if (painter == nullptr) {
        return GenericError;
    }
    const QLineF line(x1, y1, x2, y2);
    painter->setPen(pen->Pen());
    painter->drawLine(graphics->Smooth() ? SharpLine(line) : line);
    return Ok;
}

} // namespace DllExports
} // namespace Gdiplus
