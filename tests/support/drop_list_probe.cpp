#include "drop_list_probe.h"

#include "window_messages.h"

#include <string>

namespace {

constexpr const WCHAR* kClass = TEXT("KelvarinDropListProbe");
constexpr int kWidth = 161;
constexpr int kHeight = 28;

HWND MakeWindow(int x, int y, DropListProbe* probe) {
    HWND window = CreateWindowExW(WS_EX_TOOLWINDOW, kClass, TEXT("probe"), WS_POPUP, x, y, 300, 60,
                                  nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
    SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(probe));
    ShowWindow(window, SW_SHOWNOACTIVATE);
    return window;
}

} // namespace

DropListProbe::DropListProbe(int entries)
    : font_(CreateFontW(-12, 0, 0, 0, 400, 0, 0, 0, DEFAULT_CHARSET, 0, 0, CLEARTYPE_QUALITY, 0,
                        TEXT("Segoe UI"))) {
    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof windowClass;
    windowClass.lpfnWndProc = Procedure;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.lpszClassName = kClass;
    RegisterClassExW(&windowClass); // refused from the second time on
    parent_ = MakeWindow(100, 100, this);
    neighbour_ = MakeWindow(500, 400, this);
    list_ = std::make_unique<DropList>(parent_, 16, 8, kWidth, kHeight, 205);
    list_->SetFont(font_.get());
    for (int i = 0; i < entries; ++i) {
        const std::string name = "entry " + std::to_string(i);
        list_->items_.push_back(Utf8ToWide(name));
    }
}

DropListProbe::~DropListProbe() {
    list_.reset();
    DestroyWindow(neighbour_);
    DestroyWindow(parent_);
}

LRESULT CALLBACK DropListProbe::Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* probe = reinterpret_cast<DropListProbe*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (probe != nullptr && message == WM_COMMAND && wParam == MAKEWPARAM(205, CBN_SELCHANGE) &&
        reinterpret_cast<HWND>(lParam) == probe->list_->Button()) {
        ++probe->notified_;
        probe->selectedWhenNotified_ = probe->list_->selected_;
        probe->openWhenNotified_ = probe->IsOpen();
    }
    if (probe != nullptr && message == WM_LBUTTONDOWN && window == probe->neighbour_) {
        probe->presses_.push_back(PointOf(lParam));
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

LRESULT DropListProbe::ToButton(UINT message, WPARAM wParam, LPARAM lParam) {
    return SendMessageW(list_->Button(), message, wParam, lParam);
}

LRESULT DropListProbe::ToList(UINT message, WPARAM wParam, LPARAM lParam) {
    return SendMessageW(ListWindow(), message, wParam, lParam);
}

void DropListProbe::Pump() {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != FALSE) {
        DispatchMessageW(&message);
    }
}

LPARAM DropListProbe::FromNeighbour(POINT point) const {
    ClientToScreen(neighbour_, &point);
    ScreenToClient(ListWindow(), &point);
    return MAKELPARAM(static_cast<WORD>(point.x), static_cast<WORD>(point.y));
}

std::unique_ptr<TestPicture> DropListProbe::Face() const {
    auto picture = std::make_unique<TestPicture>(kWidth, kHeight);
    DRAWITEMSTRUCT item{};
    item.hwndItem = list_->Button();
    item.hDC = picture->Context();
    item.rcItem = {0, 0, kWidth, kHeight};
    list_->DrawItem(item);
    return picture;
}

std::unique_ptr<TestPicture> DropListProbe::ListPicture() const {
    RECT client{};
    GetClientRect(ListWindow(), &client);
    auto picture = std::make_unique<TestPicture>(client.right, client.bottom);
    list_->PaintEntries(picture->Context(), picture->Graphics());
    return picture;
}
