#include "painting/drawing_objects.h"

#include "painting/numbers.h"

#include <QLinearGradient>

#include <algorithm>
#include <memory>

using painting::AreNumbers;
using painting::ColourOf;
using painting::Fill;

namespace painting {

Fill::Fill(const QBrush& brush) : brush_(brush) {}

void Fill::SetStops(const QGradientStops& stops) {
    const auto* former = static_cast<const QLinearGradient*>(brush_.gradient());
    QLinearGradient gradient(former->start(), former->finalStop());
    gradient.setStops(stops);
    gradient.setSpread(former->spread());
    gradient.setInterpolationMode(former->interpolationMode());
    brush_ = QBrush(gradient);
}

QColor ColourOf(Gdiplus::ARGB colour) {
    return QColor::fromRgba(colour);
}

} // namespace painting

namespace Gdiplus {

namespace {

// A brush of either public type.
template <typename Base>
class FilledBrush final : public Base {
public:
    explicit FilledBrush(const QBrush& brush) : fill_(brush) {}

    const Fill& BrushFill() const override { return fill_; }
    Fill& BrushFill() { return fill_; }

private:
    Fill fill_;
};

} // namespace

GpPen::GpPen(const QPen& pen) : pen_(pen) {}

GpPath::GpPath(Qt::FillRule rule) {
    path_.setFillRule(rule);
}

void GpPath::AddArc(const QRectF& box, qreal startAngle, qreal sweepAngle) {
    QPainterPath arc; // Qt counts angles the other way round
    arc.arcMoveTo(box, -startAngle);
    // Of an arc without size its corner stays.
    const QPointF start = box.isEmpty() ? box.topLeft() : arc.currentPosition();
    if (!open_) {
        path_.moveTo(start);
        open_ = true;
    } else {
        path_.lineTo(start);
    }
    if (!box.isEmpty()) {
        path_.arcTo(box, -startAngle, -sweepAngle);
    }
}

void GpPath::Close() {
    if (open_) {
        path_.closeSubpath();
        open_ = false;
    }
}

namespace DllExports {

GpStatus GdipCreateSolidFill(ARGB colour, GpSolidFill** brush) {
    if (brush == nullptr) {
        return InvalidParameter;
    }
    *brush = std::make_unique<FilledBrush<GpSolidFill>>(QBrush(ColourOf(colour))).release();
    return Ok;
}

GpStatus GdipCreateLineBrush(const GpPointF* from, const GpPointF* to, ARGB first, ARGB last,
                             GpWrapMode wrap, GpLineGradient** brush) {
    if (brush == nullptr) {
        return InvalidParameter;
    }
    *brush = nullptr;
    if (from == nullptr || to == nullptr || !AreNumbers(from->X, from->Y, to->X, to->Y) ||
        (from->X == to->X && from->Y == to->Y)) {
        return InvalidParameter;
    }
    if (wrap != WrapModeTile) {
        return NotImplemented;
    }
    QLinearGradient gradient(from->X, from->Y, to->X, to->Y);
    gradient.setColorAt(0, ColourOf(first));
    gradient.setColorAt(1, ColourOf(last));
    gradient.setSpread(QGradient::RepeatSpread);
    gradient.setInterpolationMode(QGradient::ComponentInterpolation); // not premultiplied
    *brush = std::make_unique<FilledBrush<GpLineGradient>>(QBrush(gradient)).release();
    return Ok;
}

GpStatus GdipSetLinePresetBlend(GpLineGradient* brush, const ARGB* colours, const REAL* positions,
                                INT count) {
    if (brush == nullptr || colours == nullptr || positions == nullptr || count < 2 ||
        positions[0] != 0.0F || positions[count - 1] != 1.0F ||
        !std::is_sorted(positions, positions + count)) {
        return InvalidParameter;
    }
    QGradientStops stops;
    for (INT i = 0; i < count; ++i) {
        stops.append({positions[i], ColourOf(colours[i])});
    }
    // None is made elsewhere.
    static_cast<FilledBrush<GpLineGradient>*>(brush)->BrushFill().SetStops(stops);
    return Ok;
}

GpStatus GdipDeleteBrush(GpBrush* brush) {
    if (brush == nullptr) {
        return InvalidParameter;
    }
    const std::unique_ptr<GpBrush> owner(brush);
    return Ok;
}

GpStatus GdipCreatePen1(ARGB colour, REAL width, GpUnit unit, GpPen** pen) {
    if (pen == nullptr) {
        return InvalidParameter;
    }
    *pen = nullptr;
    if (!AreNumbers(width) || width < 0 || (unit != UnitWorld && unit != UnitPixel)) {
        return InvalidParameter;
    }
    // No line is thinner than a pixel.
    const QPen line(QBrush(ColourOf(colour)), qMax(1.0, qreal{width}), Qt::SolidLine, Qt::FlatCap,
                    Qt::MiterJoin);
    *pen = std::make_unique<GpPen>(line).release();
    return Ok;
}

GpStatus GdipDeletePen(GpPen* pen) {
    if (pen == nullptr) {
        return InvalidParameter;
    }
    const std::unique_ptr<GpPen> owner(pen);
    return Ok;
}

GpStatus GdipCreatePath(GpFillMode mode, GpPath** path) {
    if (path == nullptr) {
        return InvalidParameter;
    }
    const Qt::FillRule rule = mode == FillModeWinding ? Qt::WindingFill : Qt::OddEvenFill;
    *path = std::make_unique<GpPath>(rule).release();
    return Ok;
}

GpStatus GdipDeletePath(GpPath* path) {
    if (path == nullptr) {
        return InvalidParameter;
    }
    const std::unique_ptr<GpPath> owner(path);
    return Ok;
}

GpStatus GdipAddPathArc(GpPath* path, REAL x, REAL y, REAL width, REAL height, REAL startAngle,
                        REAL sweepAngle) {
    if (path == nullptr || !AreNumbers(x, y, width, height, startAngle, sweepAngle) || width < 0 ||
        height < 0) {
        return InvalidParameter;
    }
    path->AddArc(QRectF(x, y, width, height), startAngle, sweepAngle);
    return Ok;
}

GpStatus GdipClosePathFigure(GpPath* path) {
    if (path == nullptr) {
        return InvalidParameter;
    }
    path->Close();
    return Ok;
}

} // namespace DllExports
} // namespace Gdiplus
