#include "config_popup_layout.h"

#include <algorithm>

namespace {

constexpr int kSectionGap = 14;
constexpr int kLabelHeight = 15;
constexpr int kGap = 4;
constexpr int kEditHeight = 20;
constexpr int kSwapWidth = 28;
constexpr int kRefreshWidth = 30;
constexpr int kIconWidth = 18;
constexpr int kStartHeight = 34;
constexpr int kBottomExtra = 2;

constexpr int kEditInset = 8;   // pixels on either side, not scaled
constexpr int kOverlayGap = 10; // pixels, not scaled

} // namespace

PopupLayout LayOutPopup(int dpi) {
    const auto scaled = [dpi](int length) { return MulDiv(length, dpi, 96); };
    const int margin = scaled(kPopupMargin);
    const int sectionGap = scaled(kSectionGap);
    const int labelH = scaled(kLabelHeight);
    const int gap = scaled(kGap);
    const int rowH = scaled(kPopupRowHeight);
    const int editH = scaled(kEditHeight);
    const int swapW = scaled(kSwapWidth);
    const int refreshW = scaled(kRefreshWidth);
    const int iconW = scaled(kIconWidth);
    const int startH = scaled(kStartHeight);

    PopupLayout layout{};
    layout.width = scaled(kPopupWidth);
    const int contentW = layout.width - 2 * margin;
    const int keyLabelY = sectionGap + scaled(kPopupTitleHeight);
    layout.keyRowY = keyLabelY + gap + labelH;
    layout.statusRowY = layout.keyRowY + gap + rowH;
    layout.keyLabel = {margin, keyLabelY, contentW, labelH};
    layout.keyEdit = {margin + kEditInset, layout.keyRowY + (rowH - editH) / 2,
                      contentW - 2 * kEditInset, editH};

    const int langLabelY = layout.statusRowY - gap + scaled(kStatusRowHeight) + sectionGap;
    const int langY = langLabelY + gap + labelH;
    const int langW = (contentW - 2 * gap - swapW) / 2;
    const int swapX = margin + langW + gap;
    const int langBX = swapX + swapW + gap;
    layout.langALabel = {margin, langLabelY, langW, labelH};
    layout.langBLabel = {langBX, langLabelY, langW, labelH};
    layout.langAList = {margin, langY, langW, rowH};
    layout.langBList = {langBX, langY, langW, rowH};
    layout.swapGlyph = {swapX, langY, swapW, rowH};

    const int deviceLabelX = margin + iconW + gap;
    const int deviceLabelW = contentW - iconW - gap;
    const int deviceListW = contentW - refreshW - gap;
    const int refreshX = margin + contentW - refreshW;
    const int micLabelY = langY + rowH + sectionGap;
    const int micY = micLabelY + gap + labelH;
    layout.micIcon = {margin, micLabelY, iconW, labelH};
    layout.micLabel = {deviceLabelX, micLabelY, deviceLabelW, labelH};
    layout.micList = {margin, micY, deviceListW, rowH};
    layout.refreshMic = {refreshX, micY, refreshW, rowH};

    const int sysLabelY = micY + sectionGap + rowH;
    const int sysY = sysLabelY + gap + labelH;
    layout.loopbackIcon = {margin, sysLabelY, iconW, labelH};
    layout.loopbackLabel = {deviceLabelX, sysLabelY, deviceLabelW, labelH};
    layout.loopbackList = {margin, sysY, deviceListW, rowH};
    layout.refreshLoopback = {refreshX, sysY, refreshW, rowH};

    const int startY = sysY + rowH + sectionGap;
    layout.start = {margin, startY, contentW, startH};
    layout.height = startY + startH + scaled(kBottomExtra) + margin;
    return layout;
}

POINT PlacePopup(const RECT& overlay, SIZE popup, const RECT& workArea) {
    LONG x = overlay.right + kOverlayGap;
    if (x + popup.cx > workArea.right) {
        x = overlay.left - popup.cx - kOverlayGap;
    }
    const LONG centred = overlay.top + (overlay.bottom - popup.cy - overlay.top) / 2;
    return {x, std::max(std::min(centred, workArea.bottom - popup.cy), workArea.top)};
}
