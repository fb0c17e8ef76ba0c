// The graphics object: where drawing goes, and the settings that it has there.
#pragma once

#include "painting/raster.h"

#include <QRectF>
#include <gdiplus.h>

#include <memory>
#include <optional>

namespace Gdiplus {

class GpGraphics {
public:
    // Without a raster text can be measured, and no more.
    explicit GpGraphics(std::shared_ptr<painting::Raster> raster);
    ~GpGraphics();
    GpGraphics(const GpGraphics&) = delete;
    GpGraphics& operator=(const GpGraphics&) = delete;

    // Set up as this object wants it; null when there is nothing to draw on.
    QPainter* Painter();

    bool Smooth() const { return smooth_; }
    void SetSmooth(bool smooth);
    void SetClip(std::optional<QRectF> clip);

private:
    const std::shared_ptr<painting::Raster> raster_;
    bool smooth_ = false;
    std::optional<QRectF> clip_;
    bool settled_ = false; // whether the painter has the two settings above
};

} // namespace Gdiplus
