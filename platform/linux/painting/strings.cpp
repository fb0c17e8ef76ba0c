// String formats, and texts measured and drawn in rectangles.
#include "painting/drawing_objects.h"
#include "painting/fonts.h"
#include "painting/graphics.h"
#include "painting/numbers.h"
#include "painting/text_layout.h"

#include <algorithm>
#include <cmath>
#include <string>

using painting::AreNumbers;
using painting::Face;
using painting::LaidOutText;
using painting::LayoutLimits;

namespace Gdiplus {

class GpStringFormat {
public:
    StringAlignment horizontal = StringAlignmentNear;
    StringAlignment vertical = StringAlignmentNear;
    StringTrimming trimming = StringTrimmingCharacter;
    INT flags = 0;

    bool Has(StringFormatFlags flag) const { return (flags & flag) != 0; }
};

namespace {

struct TextSize {
    double width = 0; // pixels, of the widest line
    int lines = 0;
    int fitted = 0; // units of the text that the lines hold
};

const GpStringFormat& OrDefault(const GpStringFormat* format) {
    static const GpStringFormat none;
    return format == nullptr ? none : *format;
}

bool IsAlignment(StringAlignment alignment) {
    return alignment >= StringAlignmentNear && alignment <= StringAlignmentFar;
}

constexpr INT kKnownFlags = StringFormatFlagsNoWrap | StringFormatFlagsLineLimit;

// A text, and the rectangle that it is to stand in.
class Passage {
public:
    Passage(const WCHAR* text, INT length, const GpFont& font, const RectF& rectangle,
            const GpStringFormat& format);

    TextSize Size() const;
    std::shared_ptr<const LaidOutText> LayOut() const;
    // What lines of that size take, and where.
    RectF Box(double linesWidth, int lines) const;

private:
    const Face& TextFace() const { return font_.Face(); }
    LayoutLimits Limits() const;
    int MostLines() const;

    const std::u16string_view text_;
    const GpFont& font_;
    const RectF& rectangle_;
    const GpStringFormat& format_;
    const float roomForLines_; // in width, without what is left free on both sides
};

// Bound enough for a rectangle that sets none: no screen is as high.
constexpr int kMostLines = 4096;

std::u16string_view TextOf(const WCHAR* text, INT length) {
    return length < 0 ? std::u16string_view(text)
                      : std::u16string_view(text, static_cast<std::size_t>(length));
}

// Where there is no bound, the farthest place is one.
float RoomForLinesIn(const RectF& rectangle, const Face& face) {
    const float width = rectangle.Width == 0 ? painting::kFarthest : rectangle.Width;
    return std::max(0.0F, width - 2 * static_cast<float>(face.margin));
}

Passage::Passage(const WCHAR* text, INT length, const GpFont& font, const RectF& rectangle,
                 const GpStringFormat& format)
    : text_(TextOf(text, length)), font_(font), rectangle_(rectangle), format_(format),
      roomForLines_(RoomForLinesIn(rectangle, font.Face())) {}

// Whole lines only, or those that begin inside the rectangle.
int Passage::MostLines() const {
    if (rectangle_.Width < 0 || rectangle_.Height < 0) {
        return 0;
    }
    if (rectangle_.Height == 0) {
        return kMostLines;
    }
    constexpr float kRoundingError = 1.0F / 64;
    const float lines = rectangle_.Height / static_cast<float>(TextFace().lineHeight);
    const float most = format_.Has(StringFormatFlagsLineLimit) ? std::floor(lines + kRoundingError)
                                                               : std::ceil(lines - kRoundingError);
    return static_cast<int>(std::clamp(most, 0.0F, static_cast<float>(kMostLines)));
}

LayoutLimits Passage::Limits() const {
    return {roomForLines_, MostLines(), !format_.Has(StringFormatFlagsNoWrap),
            format_.trimming == StringTrimmingEllipsisCharacter};
}

std::shared_ptr<const LaidOutText> Passage::LayOut() const {
    return painting::KnownLayout(text_, font_.SharedFace(), Limits());
}

TextSize Passage::Size() const {
    const LaidOutText laidOut = painting::LayOut(text_, TextFace(), Limits());
    return {laidOut.width, static_cast<int>(laidOut.lines.size()),
            static_cast<int>(laidOut.fitted)};
}

// How far from the start of `room` something of that size begins.
float Offset(StringAlignment alignment, float room, float size) {
    switch (alignment) {
    case StringAlignmentCenter:
        return (room - size) / 2;
    case StringAlignmentFar:
        return room - size;
    default:
        return 0;
    }
}

RectF Passage::Box(double linesWidth, int lines) const {
    if (lines == 0) {
        return {rectangle_.X, rectangle_.Y, 0, 0};
    }
    float width = static_cast<float>(linesWidth + 2 * TextFace().margin);
    if (rectangle_.Width != 0) {
        width = std::min(width, rectangle_.Width);
    }
    float height = static_cast<float>(lines * TextFace().lineHeight);
    if (rectangle_.Height != 0) {
        height = std::min(height, rectangle_.Height);
    }
    return {rectangle_.X + Offset(format_.horizontal, rectangle_.Width, width),
            rectangle_.Y + Offset(format_.vertical, rectangle_.Height, height), width, height};
}

bool IsPlace(const RectF* rectangle) {
    return rectangle != nullptr &&
           AreNumbers(rectangle->X, rectangle->Y, rectangle->Width, rectangle->Height);
}

bool IsText(const WCHAR* text, INT length) {
    return text != nullptr && length >= -1;
}

// Lines that run over the rectangle are cut off there, but never in height for what a single line
// has above and below it.
void ClipTo(QPainter& painter, const RectF& rectangle, const LaidOutText& text, const Face& face) {
    const float height =
        static_cast<float>(face.lineHeight) * static_cast<float>(text.lines.size());
    const bool tooWide = rectangle.Width != 0 &&
                         text.width + 2 * face.margin > static_cast<double>(rectangle.Width) + 1;
    const bool tooHigh =
        rectangle.Height != 0 && text.lines.size() > 1 && height > rectangle.Height;
    const qreal beyond = face.lineHeight;
    QRectF clip(rectangle.X, rectangle.Y, rectangle.Width, rectangle.Height);
    if (!tooWide && !tooHigh) {
        return;
    }
    if (!tooWide) {
        clip.setWidth(painting::kFarthest);
    }
    if (!tooHigh) {
        clip.adjust(0, -beyond, 0, beyond);
    }
    painter.setClipRect(clip, Qt::IntersectClip);
}

// A base line between two rows of pixels would be drawn on one of them anyway. Right between them
// it is the upper one: with that, capitals and icons look centred where they are to be.
qreal NearestRow(float y) {
    constexpr float kJustBelowTheMiddle = 0.52F;
    return std::ceil(y - kJustBelowTheMiddle);
}

void DrawLines(QPainter& painter, const LaidOutText& text, const Face& face, const RectF& rectangle,
               const GpStringFormat& format) {
    const auto height = static_cast<float>(face.lineHeight) * static_cast<float>(text.lines.size());
    const float top = rectangle.Y + Offset(format.vertical, rectangle.Height, height);
    qreal baseLine = NearestRow(top + static_cast<float>(face.ascent));
    for (const painting::TextLine& line : text.lines) {
        const auto width = static_cast<float>(line.width + 2 * face.margin);
        const qreal left =
            rectangle.X + Offset(format.horizontal, rectangle.Width, width) + face.margin;
        painting::DrawLine(painter, line, left, baseLine);
        baseLine += face.lineHeight;
    }
}

} // namespace

namespace DllExports {

GpStatus GdipCreateStringFormat(INT flags, LANGID /*language*/, GpStringFormat** format) {
    if (format == nullptr) {
        return InvalidParameter;
    }
    *format = nullptr;
    if ((flags & ~kKnownFlags) != 0) {
        return NotImplemented;
    }
    auto made = std::make_unique<GpStringFormat>();
    made->flags = flags;
    *format = made.release();
    return Ok;
}

GpStatus GdipDeleteStringFormat(GpStringFormat* format) {
    if (format == nullptr) {
        return InvalidParameter;
    }
    const std::unique_ptr<GpStringFormat> owner(format);
    return Ok;
}

GpStatus GdipSetStringFormatAlign(GpStringFormat* format, StringAlignment alignment) {
    if (format == nullptr || !IsAlignment(alignment)) {
        return InvalidParameter;
    }
    format->horizontal = alignment;
    return Ok;
}

GpStatus GdipSetStringFormatLineAlign(GpStringFormat* format, StringAlignment alignment) {
    if (format == nullptr || !IsAlignment(alignment)) {
        return InvalidParameter;
    }
    format->vertical = alignment;
    return Ok;
}

GpStatus GdipSetStringFormatTrimming(GpStringFormat* format, StringTrimming trimming) {
    if (format == nullptr) {
        return InvalidParameter;
    }
    format->trimming = trimming;
    return Ok;
}

GpStatus GdipSetStringFormatFlags(GpStringFormat* format, INT flags) {
    if (format == nullptr) {
        return InvalidParameter;
    }
    if ((flags & ~kKnownFlags) != 0) {
        return NotImplemented;
    }
    format->flags = flags;
    return Ok;
}

GpStatus GdipMeasureString(GpGraphics* graphics, const WCHAR* text, INT length, const GpFont* font,
                           const RectF* rectangle, const GpStringFormat* format, RectF* box,
                           INT* unitsFitted, INT* linesFilled) {
    if (graphics == nullptr || font == nullptr || box == nullptr || !IsText(text, length) ||
        !IsPlace(rectangle)) {
        return InvalidParameter;
    }
    const Passage passage(text, length, *font, *rectangle, OrDefault(format));
    const TextSize size = passage.Size();
    *box = passage.Box(size.width, size.lines);
    if (unitsFitted != nullptr) {
        *unitsFitted = size.fitted;
    }
    if (linesFilled != nullptr) {
        *linesFilled = size.lines;
    }
    return Ok;
}

GpStatus GdipDrawString(GpGraphics* graphics, const WCHAR* text, INT length, const GpFont* font,
                        const RectF* rectangle, const GpStringFormat* format,
                        const GpBrush* brush) {
    if (graphics == nullptr || font == nullptr || brush == nullptr || !IsText(text, length) ||
        !IsPlace(rectangle)) {
        return InvalidParameter;
    }
    QPainter* painter = graphics->Painter();
    if (painter == nullptr) {
        return GenericError;
    }
    const GpStringFormat& chosen = OrDefault(format);
    const std::shared_ptr<const LaidOutText> laidOut =
        Passage(text, length, *font, *rectangle, chosen).LayOut();
    painter->save();
    ClipTo(*painter, *rectangle, *laidOut, font->Face());
    painter->setPen(QPen(brush->BrushFill().Brush(), 1));
    DrawLines(*painter, *laidOut, font->Face(), *rectangle, chosen);
    painter->restore();
    return Ok;
}

} // namespace DllExports
} // namespace Gdiplus
