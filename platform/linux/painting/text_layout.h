// Text broken into lines. Knows nothing of GDI+ and of where the lines are drawn.
#pragma once

#include "painting/fonts.h"

#include <QStringView>
#include <QTextLayout>

#include <memory>
#include <vector>

namespace painting {

struct LayoutLimits {
    qreal width;   // pixels
    int lines;     // what comes behind them is not laid out
    bool wrap;     // else a paragraph is one line, which may be wider
    bool ellipsis; // whether what does not fit is marked at the end
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

// Lines end at line feeds, carriage returns and both together, and where they would become too
// wide: at a blank, between ideographs, and inside a word that is too long by itself. Control
// characters take no room, lone surrogates become U+FFFD, and the codes of icons become icons. A
// break at the very end makes no further line.
LaidOutText LayOut(QStringView text, const Face& face, const LayoutLimits& limits);

} // namespace painting
