// Families and fonts: which installed ones stand for those that the program asks for, and the
// measures of a font's lines. Knows nothing of layout and drawing.
#pragma once

#include <QFont>
#include <QString>
#include <gdiplus.h>

#include <memory>
#include <optional>

namespace painting {

struct Family {
    enum class Kind { Named, SansSerif, Icons };

    Kind kind;
    QString name; // as it is asked for
};

// Installed families by their names, and that of the icons where the font is installed that stands
// in for it.
std::optional<Family> FindFamily(const WCHAR* name);
// The one that every system has.
const Family& SansSerif();

// A font of a family, size and style, with what it falls back to. Shared by all font objects that
// ask for the same.
struct Face {
    // Characters that the family lacks come from well-known families, and Han characters as they
    // are written in China, or in Japan.
    QFont text;
    QFont japaneseText;
    QFont icons;
    // For symbols that are text unless they are said to be emoji: never in colours of their own.
    QFont symbols;

    // The same for every line, whatever the fonts that its characters really come from, so that
    // what stands below a text does not jump when it changes. Whole pixels.
    int ascent;
    int lineHeight;

    // What is left free on the left and on the right of a text, in pixels: a sixth of an em, so
    // that texts that are drawn next to each other do not touch.
    qreal margin;
};

constexpr float kLargestFont = 2000.0F; // pixels

// `weight` is that of a font, 400 for regular and 700 for bold.
std::shared_ptr<const Face> FaceOf(const Family& family, qreal pixels, int weight, bool italic);

// The icon at a code point of the private use area, 0 where that has none.
char16_t IconAt(char16_t code);

// Forgets what is kept for speed.
void ForgetFaces();

} // namespace painting

namespace Gdiplus {

class GpFontFamily {
public:
    explicit GpFontFamily(painting::Family family);

    const painting::Family& Family() const { return family_; }

private:
    painting::Family family_;
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
