// What GDI+ draws with: brushes, pens and paths. Knows nothing of pictures.
#pragma once

#include <QBrush>
#include <QColor>
#include <QPainterPath>
#include <QPen>
#include <gdiplus.h>

namespace painting {

class Fill {
public:
    explicit Fill(const QBrush& brush);

    const QBrush& Brush() const { return brush_; }
    // For a gradient only.
    void SetStops(const QGradientStops& stops);

private:
    QBrush brush_;
};

QColor ColourOf(Gdiplus::ARGB colour);

} // namespace painting

namespace Gdiplus {

class GpPen {
public:
    explicit GpPen(const QPen& pen);

    const QPen& Pen() const { return pen_; }

private:
    QPen pen_;
};

class GpPath {
public:
    explicit GpPath(Qt::FillRule rule);

    void AddArc(const QRectF& box, qreal startAngle, qreal sweepAngle);
    void Close();
    const QPainterPath& Path() const { return path_; }

private:
    QPainterPath path_;
    bool open_ = false; // whether the next piece joins the last one
};

} // namespace Gdiplus
