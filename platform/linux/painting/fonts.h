// Families and fonts: which installed ones stand for those that the program asks for, and the
// measures of a font's lines. Knows nothing of layout and drawing.
#pragma once

#include <gdiplus.h>

#include <QFont>
#include <QString>

#include <memory>

namespace painting {

// A font of a family, size and style, with what it falls back to. Shared by all font objects that
// ask for the same.
struct Face {
    // Characters that the family lacks come from well-known families, and Han characters as they
    // are written in China, or in Japan.
    QFont text;
    QFont japaneseText;
    QFont icons;

    // The same for every line, whatever the fonts that its characters really come from, so that
    // what stands below a text does not jump when it changes. Whole pixels.
    int ascent;
    int lineHeight;

    // What is left free on the left and on the right of a text, in pixels: a sixth of an em, so
    // that texts that are drawn next to each other do not touch.
    qreal margin;
};

// The icon at a code point of the private use area, 0 where that has none.
char16_t IconAt(char16_t code);

// Forgets what is kept for speed.
void ForgetFaces();

} // namespace painting

namespace Gdiplus {

class GpFontFamily {
public:
    enum class Kind { Named, SansSerif, Icons };

    GpFontFamily(Kind kind, QString name);

    Kind Is() const { return kind_; }
    const QString& Name() const { return name_; } // as Qt knows it

private:
    Kind kind_;
    QString name_;
};

class GpFont {
public:
    explicit GpFont(std::shared_ptr<const painting::Face> face);

    const painting::Face& Face() const { return *face_; }
    const std::shared_ptr<const painting::Face>& SharedFace() const { return face_; }

private:
    std::shared_ptr<const painting::Face> face_;
};

} // namespace Gdiplus
