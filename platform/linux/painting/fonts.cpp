#include "painting/fonts.h"

#include "application/application.h"
#include "painting/device_context.h"
#include "painting/numbers.h"

#include <QFontDatabase>
#include <QFontMetricsF>
#include <QHash>
#include <QStringList>

#include <cmath>
#include <map>
#include <tuple>
#include <utility>

using painting::AreNumbers;
using painting::Face;

namespace painting {

namespace {

const QString kIconFamily = QStringLiteral("Segoe MDL2 Assets");
const QString kInstalledIconFamily = QStringLiteral("Material Icons");
const QString kSansSerifFamily = QStringLiteral("Noto Sans");

// The program's codes, and those of the same pictures in the installed icon font.
constexpr std::pair<char16_t, char16_t> kIcons[] = {
    {0xE106, 0xE5CD}, // cancel
    {0xE107, 0xE872}, // delete
    {0xE713, 0xE8B8}, // settings
    {0xE720, 0xE029}, // microphone
    {0xE72C, 0xE5D5}, // refresh
    {0xE767, 0xE050}, // loudspeaker
    {0xE768, 0xE037}, // play
    {0xE769, 0xE034}, // pause
    {0xE775, 0xE8E2}, // translate
};

// Looking a family up takes Qt a tenth of a millisecond.
bool IsInstalled(const QString& family) {
    static QHash<QString, bool> known;
    const auto found = known.constFind(family);
    if (found != known.constEnd()) {
        return *found;
    }
    constexpr qsizetype kMostNames = 64; // the program uses three
    if (known.size() >= kMostNames) {
        known.clear();
    }
    return *known.insert(family, QFontDatabase::hasFamily(family));
}

// The family itself, and then those that are ahead of what the system would fall back to: its order
// depends on the user's locale, and may prefer fonts with half of a script.
QStringList TextChain(const QString& first, bool japanese) {
    const QString hanFamilies[] = {QStringLiteral("Noto Sans CJK SC"),
                                   QStringLiteral("Noto Sans CJK JP")};
    return {first, hanFamilies[japanese ? 1 : 0], hanFamilies[japanese ? 0 : 1]};
}

QStringList Chain(const QString& first, bool japanese) {
    return TextChain(first, japanese) +
           QStringList{QStringLiteral("Noto Sans Arabic"), QStringLiteral("Noto Sans Hebrew"),
                       QStringLiteral("Noto Sans Thai"), QStringLiteral("Noto Sans Devanagari"),
                       QStringLiteral("Noto Color Emoji")};
}

QStringList SymbolChain(const QString& first) {
    return TextChain(first, false) + QStringList{QStringLiteral("Noto Sans Symbols"),
                                                 QStringLiteral("Noto Sans Symbols2"),
                                                 QStringLiteral("DejaVu Sans")};
}

QFont FontFrom(const QStringList& families, qreal pixels, int weight, bool italic) {
    QFont font;
    font.setFamilies(families);
    // Qt's font engines have whole pixels only. That makes for sharp lines in height; in width the
    // size is kept to half a percent, or else texts would run too wide or too narrow.
    const int wholePixels = qMax(1, qRound(pixels));
    font.setPixelSize(wholePixels);
    font.setStretch(qBound(50, qRound(100 * pixels / wholePixels), 200));
    font.setWeight(static_cast<QFont::Weight>(weight));
    font.setItalic(italic);
    // Fitted to the pixels in height only: positions within a line stay those that were measured.
    font.setHintingPreference(QFont::PreferVerticalHinting);
    font.setStyleStrategy(QFont::NoSubpixelAntialias); // the pictures are translucent
    font.setStyleHint(QFont::SansSerif);
    return font;
}

// An installed system has the first; others have what they call sans serif.
QString InstalledSansSerif() {
    return IsInstalled(kSansSerifFamily) ? kSansSerifFamily : SansSerif().name;
}

std::shared_ptr<const Face> MakeFace(const Family& family, qreal pixels, int weight, bool italic) {
    const QString name = family.kind == Family::Kind::Named ? family.name : InstalledSansSerif();
    Face face{};
    face.text = FontFrom(Chain(name, false), pixels, weight, italic);
    face.japaneseText = FontFrom(Chain(name, true), pixels, weight, italic);
    face.icons = FontFrom({kInstalledIconFamily}, pixels, QFont::Normal, false);
    face.symbols = FontFrom(SymbolChain(name), pixels, weight, italic);
    const QFontMetricsF metrics(family.kind == Family::Kind::Icons ? face.icons : face.text);
    face.ascent = qMax(1, qRound(metrics.ascent()));
    face.lineHeight = qMax(face.ascent, qRound(metrics.ascent() + metrics.descent()));
    constexpr qreal kMarginEms = 1.0 / 6.0;
    face.margin = pixels * kMarginEms;
    return std::make_shared<const Face>(std::move(face));
}

// Family, hundredths of a pixel, weight, whether italic.
using FaceKey = std::tuple<QString, int, int, bool>;

std::map<FaceKey, std::shared_ptr<const Face>>& Faces() {
    static std::map<FaceKey, std::shared_ptr<const Face>> faces;
    return faces;
}

} // namespace

std::optional<Family> FindFamily(const WCHAR* name) {
    QString asked = QString::fromUtf16(name);
    const bool icons = asked.compare(kIconFamily, Qt::CaseInsensitive) == 0;
    if (!IsInstalled(icons ? kInstalledIconFamily : asked)) {
        return std::nullopt;
    }
    return Family{icons ? Family::Kind::Icons : Family::Kind::Named, std::move(asked)};
}

const Family& SansSerif() {
    static const Family family{Family::Kind::SansSerif, QStringLiteral("sans-serif")};
    return family;
}

std::shared_ptr<const Face> FaceOf(const Family& family, qreal pixels, int weight, bool italic) {
    const FaceKey key{family.name, qRound(pixels * 100), weight, italic};
    auto& faces = Faces();
    const auto found = faces.find(key);
    if (found != faces.end()) {
        return found->second;
    }
    constexpr std::size_t kMostFaces = 64; // the program has fifteen or so at each DPI
    if (faces.size() >= kMostFaces) {
        faces.clear();
    }
    return faces.emplace(key, MakeFace(family, pixels, weight, italic)).first->second;
}

char16_t IconAt(char16_t code) {
    for (const auto& [asked, installed] : kIcons) {
        if (asked == code) {
            return installed;
        }
    }
    return 0;
}

void ForgetFaces() {
    Faces().clear();
}

} // namespace painting

namespace Gdiplus {

GpFontFamily::GpFontFamily(painting::Family family) : family_(std::move(family)) {}

GpFont::GpFont(std::shared_ptr<const painting::Face> face) : face_(std::move(face)) {}

namespace {

GpFontFamily& GenericSansSerif() {
    static GpFontFamily family(painting::SansSerif());
    return family;
}

constexpr float kPointsInAnInch = 72.0F;

} // namespace

namespace DllExports {

GpStatus GdipCreateFontFamilyFromName(const WCHAR* name, GpFontCollection* collection,
                                      GpFontFamily** family) {
    if (family == nullptr) {
        return InvalidParameter;
    }
    *family = nullptr;
    if (name == nullptr || collection != nullptr) {
        return InvalidParameter;
    }
    if (application::Instance() == nullptr) {
        return GenericError;
    }
    std::optional<painting::Family> found = painting::FindFamily(name);
    if (!found) {
        return FontFamilyNotFound;
    }
    *family = std::make_unique<GpFontFamily>(*std::move(found)).release();
    return Ok;
}

GpStatus GdipGetGenericFontFamilySansSerif(GpFontFamily** family) {
    if (family == nullptr) {
        return InvalidParameter;
    }
    *family = application::Instance() == nullptr ? nullptr : &GenericSansSerif();
    return *family == nullptr ? GenericError : Ok;
}

GpStatus GdipDeleteFontFamily(GpFontFamily* family) {
    if (family == nullptr) {
        return InvalidParameter;
    }
    if (family != &GenericSansSerif()) {
        const std::unique_ptr<GpFontFamily> owner(family);
    }
    return Ok;
}

GpStatus GdipCreateFont(const GpFontFamily* family, REAL size, INT style, Unit unit,
                        GpFont** font) {
    if (font == nullptr) {
        return InvalidParameter;
    }
    *font = nullptr;
    if (family == nullptr || !AreNumbers(size) || size <= 0 || style < 0 ||
        style > FontStyleBoldItalic ||
        (unit != UnitPoint && unit != UnitPixel && unit != UnitWorld)) {
        return InvalidParameter;
    }
    const int dpi = painting::ScreenDpiY();
    if (dpi <= 0) {
        return GenericError;
    }
    const float pixels =
        unit == UnitPoint ? size * static_cast<float>(dpi) / kPointsInAnInch : size;
    if (pixels > painting::kLargestFont) {
        return InvalidParameter;
    }
    const int weight = (style & FontStyleBold) != 0 ? FW_BOLD : FW_NORMAL;
    const bool italic = (style & FontStyleItalic) != 0;
    *font = std::make_unique<GpFont>(painting::FaceOf(family->Family(), pixels, weight, italic))
                .release();
    return Ok;
}

GpStatus GdipDeleteFont(GpFont* font) {
    if (font == nullptr) {
        return InvalidParameter;
    }
    const std::unique_ptr<GpFont> owner(font);
    return Ok;
}

} // namespace DllExports
} // namespace Gdiplus
