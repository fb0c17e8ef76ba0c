#include "painting/text_layout.h"

#include <QTextBoundaryFinder>
#include <QTextOption>

#include <algorithm>
#include <iterator>
#include <utility>

namespace painting {

namespace {

// Long paragraphs are shaped piece by piece, so that no more of them is than is needed. A piece
// that makes not even a line is doubled up to the longest, which then is broken where it ends.
constexpr qsizetype kFirstPiece = 1024; // units
constexpr qsizetype kLongestPiece = 8192;

// More than any rectangle on a screen can show; reached by text without a width only.
constexpr qsizetype kMostShaped = 131072; // units

// Marks on one letter: what it takes to shape them grows with their square.
constexpr int kMostMarks = 16;

// Wide enough for any line, and far from where Qt's 26.6 bits end.
constexpr qreal kUnboundedWidth = 4.0e6;

// A text measured and then laid out at just the width that came of it must not break anew.
constexpr qreal kWidthTolerance = 1.0 / 16;

constexpr char16_t kReplacement = 0xFFFD;
constexpr char16_t kZeroWidth = 0x200B;
constexpr char16_t kEllipsis = 0x2026;

bool IsBlank(QChar unit) {
    return unit == u' ' || unit == u'\t' || unit == QChar(0x3000);
}

bool IsControl(char16_t unit) {
    return (unit < 0x20 && unit != u'\t') || (unit >= 0x7F && unit < 0xA0);
}

bool IsPrivate(char16_t unit) {
    return unit >= 0xE000 && unit <= 0xF8FF;
}

// Symbols that are pictures in colours unless they are said to be text.
constexpr std::pair<char16_t, char16_t> kEmojiByDefault[] = {
    {0x231A, 0x231B}, {0x23E9, 0x23EC}, {0x23F0, 0x23F0}, {0x23F3, 0x23F3}, {0x25FD, 0x25FE},
    {0x2614, 0x2615}, {0x2648, 0x2653}, {0x267F, 0x267F}, {0x2693, 0x2693}, {0x26A1, 0x26A1},
    {0x26AA, 0x26AB}, {0x26BD, 0x26BE}, {0x26C4, 0x26C5}, {0x26CE, 0x26CE}, {0x26D4, 0x26D4},
    {0x26EA, 0x26EA}, {0x26F2, 0x26F3}, {0x26F5, 0x26F5}, {0x26FA, 0x26FA}, {0x26FD, 0x26FD},
    {0x2705, 0x2705}, {0x270A, 0x270B}, {0x2728, 0x2728}, {0x274C, 0x274C}, {0x274E, 0x274E},
    {0x2753, 0x2755}, {0x2757, 0x2757}, {0x2795, 0x2797}, {0x27B0, 0x27B0}, {0x27BF, 0x27BF},
    {0x2B1B, 0x2B1C}, {0x2B50, 0x2B50}, {0x2B55, 0x2B55},
};

bool IsEmojiByDefault(char16_t unit) {
    return std::any_of(
        std::begin(kEmojiByDefault), std::end(kEmojiByDefault),
        [&](const auto& range) { return unit >= range.first && unit <= range.second; });
}

// Whether a symbol is to be drawn as text: by its nature, or by the selector behind it. What is
// joined to an emoji is a part of that.
bool IsTextSymbol(QStringView text, qsizetype at) {
    constexpr char16_t kFirstSymbol = 0x203C;
    constexpr char16_t kLastSymbol = 0x2BFF;
    constexpr char16_t kJoiner = 0x200D;
    constexpr char16_t kTextSelector = 0xFE0E;
    constexpr char16_t kEmojiSelector = 0xFE0F;
    const QChar unit = text[at];
    if (unit < kFirstSymbol || unit > kLastSymbol || unit.isMark()) {
        return false;
    }
    const char16_t next = at + 1 < text.size() ? text[at + 1].unicode() : u'\0';
    const bool joined = at > 0 && text[at - 1] == QChar(kJoiner);
    if (next == kEmojiSelector || next == kJoiner || joined) {
        return false;
    }
    return next == kTextSelector || !IsEmojiByDefault(unit.unicode());
}

bool IsKana(char16_t unit) {
    return unit >= 0x3041 && unit <= 0x30FF;
}

QStringView WithoutBlanksAtTheEnd(QStringView text) {
    while (!text.isEmpty() && IsBlank(text.back())) {
        text.chop(1);
    }
    return text;
}

// A piece of a text, unit for unit as it is to be shaped.
struct Prepared {
    QString text;
    QList<QTextLayout::FormatRange> inOtherFonts; // icons and symbols
    bool japanese = false;
};

void SetFont(Prepared& prepared, qsizetype at, const QFont& font) {
    const int position = static_cast<int>(at);
    if (!prepared.inOtherFonts.isEmpty()) {
        auto& last = prepared.inOtherFonts.last();
        if (last.start + last.length == position && last.format.font() == font) {
            ++last.length;
            return;
        }
    }
    QTextLayout::FormatRange range;
    range.start = position;
    range.length = 1;
    range.format.setFont(font);
    prepared.inOtherFonts.append(range);
}

char16_t PreparedUnit(QStringView text, qsizetype at) {
    const QChar unit = text[at];
    if (unit.isHighSurrogate()) {
        const bool paired = at + 1 < text.size() && text[at + 1].isLowSurrogate();
        return paired ? unit.unicode() : kReplacement;
    }
    if (unit.isLowSurrogate()) {
        return at > 0 && text[at - 1].isHighSurrogate() ? unit.unicode() : kReplacement;
    }
    if (IsControl(unit.unicode())) {
        return kZeroWidth;
    }
    // What would stand for an embedded object, of which there are none.
    return unit == QChar::ObjectReplacementCharacter ? kReplacement : unit.unicode();
}

Prepared Prepare(QStringView text, const Face& face) {
    Prepared prepared;
    prepared.text.resize(text.size());
    QChar* out = prepared.text.data();
    int marks = 0; // that stand on one letter
    for (qsizetype i = 0; i < text.size(); ++i) {
        char16_t unit = PreparedUnit(text, i);
        if (IsPrivate(unit)) {
            const char16_t icon = IconAt(unit);
            unit = icon == 0 ? kReplacement : icon;
            if (icon != 0) {
                SetFont(prepared, i, face.icons);
            }
        } else if (IsTextSymbol(text, i)) {
            SetFont(prepared, i, face.symbols);
        }
        constexpr char16_t kFirstMark = 0x0300;
        marks = unit >= kFirstMark && QChar(unit).isMark() ? marks + 1 : 0;
        if (marks > kMostMarks) {
            unit = kZeroWidth;
        }
        prepared.japanese = prepared.japanese || IsKana(unit);
        out[i] = unit;
    }
    return prepared;
}

// `length` units from `start`, or one less where that would part a surrogate pair.
QStringView PieceAt(QStringView text, qsizetype start, qsizetype length) {
    QStringView piece = text.sliced(start, std::min(length, text.size() - start));
    if (start + piece.size() < text.size() && piece.size() > 1 && piece.back().isHighSurrogate() &&
        text[start + piece.size()].isLowSurrogate()) {
        piece.chop(1);
    }
    return piece;
}

std::shared_ptr<QTextLayout> Shape(QStringView piece, const Face& face, bool rightToLeft) {
    Prepared prepared = Prepare(piece, face);
    auto layout = std::make_shared<QTextLayout>(prepared.text,
                                                prepared.japanese ? face.japaneseText : face.text);
    QTextOption option(Qt::AlignLeft | Qt::AlignAbsolute);
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    option.setTextDirection(rightToLeft ? Qt::RightToLeft : Qt::LeftToRight);
    constexpr int kTabLineHeights = 3;
    option.setTabStopDistance(face.lineHeight * kTabLineHeights);
    layout->setTextOption(option);
    layout->setCacheEnabled(true); // what was shaped for measuring is still there for drawing
    if (!prepared.inOtherFonts.isEmpty()) {
        layout->setFormats(prepared.inOtherFonts);
    }
    return layout;
}

class Composer {
public:
    Composer(QStringView text, const Face& face, const LayoutLimits& limits)
        : text_(text), face_(face), limits_(limits) {}

    LaidOutText Compose();

private:
    bool Full() const {
        return result_.lines.size() >= static_cast<std::size_t>(limits_.lines) ||
               result_.shaped >= kMostShaped;
    }
    void AddParagraph(qsizetype start, qsizetype end);
    qsizetype AddPiece(qsizetype start, QStringView piece, bool last, bool longest);
    void AddLine(qsizetype start, const std::shared_ptr<QTextLayout>& layout, int index);
    void EndWithEllipsis();
    TextLine EllipsisLine(QStringView head);

    const QStringView text_;
    const Face& face_;
    const LayoutLimits& limits_;
    LaidOutText result_;
    bool rightToLeft_ = false;    // of the paragraph
    qsizetype lastLineStart_ = 0; // in the text
};

LaidOutText Composer::Compose() {
    qsizetype start = 0;
    while (start < text_.size() && !Full()) {
        qsizetype end = start;
        while (end < text_.size() && !EndsParagraph(text_[end].unicode())) {
            ++end;
        }
        AddParagraph(start, end);
        if (Full() && result_.fitted < end) {
            break;
        }
        start = end +
                (end + 1 < text_.size() && text_[end] == u'\r' && text_[end + 1] == u'\n' ? 2 : 1);
        result_.fitted = std::min(start, text_.size());
    }
    if (limits_.ellipsis && !result_.lines.empty() &&
        (result_.fitted < text_.size() || result_.lines.back().width > limits_.width)) {
        EndWithEllipsis();
    }
    for (const TextLine& line : result_.lines) {
        result_.width = std::max(result_.width, line.width);
    }
    return std::move(result_);
}

void Composer::AddParagraph(qsizetype start, qsizetype end) {
    const qsizetype seen = start + WithoutBlanksAtTheEnd(text_.sliced(start, end - start)).size();
    if (seen == start) {
        lastLineStart_ = start;
        result_.lines.emplace_back();
        result_.fitted = end;
        return;
    }
    rightToLeft_ = !limits_.leftToRight &&
                   text_.sliced(start, std::min(seen - start, kFirstPiece)).isRightToLeft();
    qsizetype room = kFirstPiece;
    while (start < seen && !Full()) {
        const QStringView piece = PieceAt(text_.first(seen), start, room);
        const bool last = start + piece.size() == seen;
        const qsizetype taken = AddPiece(start, piece, last, room >= kLongestPiece);
        if (taken == 0) {
            room *= 2;
            continue;
        }
        start += taken;
        result_.fitted = start;
        room = kFirstPiece;
        if (!limits_.wrap) {
            break; // the rest is beyond the line's end
        }
    }
    if (start == seen) {
        result_.fitted = end;
    }
}

// Adds the lines of a piece, and returns the units that they hold. The line that reaches the end of
// a piece which is not the last one may have more to it, and is left to the next piece; 0 when that
// leaves none.
qsizetype Composer::AddPiece(qsizetype start, QStringView piece, bool last, bool longest) {
    const std::shared_ptr<QTextLayout> layout = Shape(piece, face_, rightToLeft_);
    qsizetype taken = 0;
    layout->beginLayout();
    while (!Full()) {
        QTextLine line = layout->createLine();
        if (!line.isValid()) {
            break;
        }
        line.setLineWidth(limits_.wrap ? limits_.width + kWidthTolerance : kUnboundedWidth);
        const bool reachesEnd = line.textStart() + line.textLength() >= piece.size();
        const bool sure = limits_.wrap ? !reachesEnd : line.naturalTextWidth() > limits_.width;
        if (!last && !sure && (taken > 0 || !longest)) {
            break;
        }
        AddLine(start, layout, line.lineNumber());
        taken = line.textStart() + line.textLength();
    }
    layout->endLayout();
    result_.shaped += piece.size();
    return taken;
}

void Composer::AddLine(qsizetype start, const std::shared_ptr<QTextLayout>& layout, int index) {
    const QTextLine line = layout->lineAt(index);
    lastLineStart_ = start + line.textStart();
    result_.lines.push_back({layout, index, line.naturalTextWidth()});
}

// Replaces the last line by as much of what there is from its start as has room with an ellipsis.
void Composer::EndWithEllipsis() {
    QStringView rest = text_.sliced(lastLineStart_);
    rest = rest.first(std::find_if(rest.begin(), rest.end(),
                                   [](QChar unit) { return EndsParagraph(unit.unicode()); }) -
                      rest.begin());
    rest = PieceAt(rest, 0, kLongestPiece);
    if (result_.lines.back().layout != nullptr) {
        // More than the line could hold has no room with an ellipsis either.
        const QTextLayout& layout = *result_.lines.back().layout;
        const QTextLine line = layout.lineAt(result_.lines.back().index);
        rest = rest.first(std::min<qsizetype>(rest.size(), line.textLength()));
    }
    std::vector<qsizetype> ends{0};
    QTextBoundaryFinder characters(QTextBoundaryFinder::Grapheme, rest.data(), rest.size());
    while (characters.toNextBoundary() >= 0) {
        ends.push_back(characters.position());
    }
    const auto tooLong = std::partition_point(ends.begin() + 1, ends.end(), [&](qsizetype end) {
        return EllipsisLine(rest.first(end)).width <= limits_.width;
    });
    const qsizetype fitted = *(tooLong - 1);
    result_.lines.back() = EllipsisLine(rest.first(fitted));
    result_.fitted = lastLineStart_ + fitted;
}

TextLine Composer::EllipsisLine(QStringView head) {
    const QString marked = WithoutBlanksAtTheEnd(head).toString() + QChar(kEllipsis);
    const std::shared_ptr<QTextLayout> layout = Shape(marked, face_, rightToLeft_);
    layout->beginLayout();
    QTextLine line = layout->createLine();
    line.setLineWidth(kUnboundedWidth);
    layout->endLayout();
    return {layout, 0, line.naturalTextWidth()};
}

} // namespace

bool EndsParagraph(char16_t unit) {
    return unit == u'\n' || unit == u'\r' || unit == 0x2028 || unit == 0x2029;
}

void DrawLine(QPainter& painter, const TextLine& line, qreal left, qreal baseLine) {
    if (line.layout != nullptr) {
        const QTextLine drawn = line.layout->lineAt(line.index);
        drawn.draw(&painter, QPointF(left, baseLine - drawn.ascent()) - drawn.position());
    }
}

LaidOutText LayOut(QStringView text, const Face& face, const LayoutLimits& limits) {
    return Composer(text, face, limits).Compose();
}

} // namespace painting
