// A drop-down list under test, in a window that notes what it is told, beside a window that notes
// where it is pressed.
#pragma once

#include "drop_list.h"
#include "test_picture.h"

#include <memory>
#include <vector>

class DropListProbe {
public:
    // A list of so many entries, 161 by 28 pixels.
    explicit DropListProbe(int entries);
    ~DropListProbe();
    DropListProbe(const DropListProbe&) = delete;
    DropListProbe& operator=(const DropListProbe&) = delete;

    DropList& List() { return *list_; }
    void DestroyList() { list_.reset(); }
    LRESULT ToButton(UINT message, WPARAM wParam = 0, LPARAM lParam = 0);
    LRESULT ToList(UINT message, WPARAM wParam = 0, LPARAM lParam = 0);
    void Open() { ToButton(WM_KEYDOWN, VK_SPACE); }
    void Pump();

    bool IsOpen() const { return list_->open_; }
    HWND ListWindow() const { return list_->listWnd_; }
    int ScrollTop() const { return list_->scrollTop_; }
    int Hot() const { return list_->hot_; }

    int Notified() const { return notified_; }
    int SelectedWhenNotified() const { return selectedWhenNotified_; }
    bool OpenWhenNotified() const { return openWhenNotified_; }

    // A point of the neighbouring window as the open list sees it.
    LPARAM FromNeighbour(POINT point) const;
    const std::vector<POINT>& NeighbourPresses() const { return presses_; }

    std::unique_ptr<TestPicture> Face() const;
    std::unique_ptr<TestPicture> ListPicture() const;

private:
    static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

    GdiplusSession gdiplus_;
    GdiFontOwner font_;
    HWND parent_ = nullptr;
    HWND neighbour_ = nullptr;
    std::unique_ptr<DropList> list_;
    int notified_ = 0;
    int selectedWhenNotified_ = -1;
    bool openWhenNotified_ = false;
    std::vector<POINT> presses_;
};
