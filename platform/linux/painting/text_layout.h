// Text broken into lines. Knows nothing of whose text it is and of where its lines are to stand.
#pragma once

#include "painting/fonts.h"

#include <QStringView>
#include <QTextLayout>

#include <memory>
#include <string_view>
#include <vector>

namespace painting {

struct LayoutLimits {
    qreal width;   // pixels
    int lines;     // what comes behind them is not laid out
    bool wrap;     // else a paragraph is one line, which may be wider
    bool ellipsis; // whether what does not fit is marked at the end
    // Whether words follow each other from the left in any case, else as the script of a
    // paragraph's first letter has it.
    bool leftToRight = false;
};

struct TextLine {
    std::shared_ptr<const QTextLayout> layout; // null for a line without anything to be seen
    int index = 0;                             // of the line in it
    qreal width = 0;                           // pixels, without the blanks at its end
};

struct LaidOutText {
    std::vector<TextLine> lines;
    qreal width = 0;      // of the widest line
    qsizetype fitted = 0; // units of the text that the lines hold, what lies beyond the width too
    qsizetype shaped = 0; // units that had to be looked at for it, pieces taken twice counted twice
};

// Whether a unit ends a line for good.
bool EndsParagraph(char16_t unit);

// Lines end at line feeds, carriage returns and both together, and where they would become too
// wide: at a blank, between ideographs, and inside a word that is too long by itself. Control
// characters take no room, lone surrogates become U+FFFD, and the codes of icons become icons. A
// break at the very end makes no further line.
LaidOutText LayOut(QStringView text, const Face& face, const LayoutLimits& limits);

// What has been laid out and is likely to be asked for again is kept.
std::shared_ptr<const LaidOutText> KnownLayout(std::u16string_view text,
                                               const std::shared_ptr<const Face>& face,
                                               const LayoutLimits& limits);
void ForgetLayouts();

// In the painter's pen.
void DrawLine(QPainter& painter, const TextLine& line, qreal left, qreal baseLine);

} // namespace painting
