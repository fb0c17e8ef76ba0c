// The settings popup's controls as a table: each row says what there is to know of one.
#pragma once

#include "config_popup.h"
#include "config_popup_ids.h"
#include "config_popup_layout.h"

// How an owner-drawn button looks.
struct ButtonLook;
extern const ButtonLook kStartLook;
extern const ButtonLook kRefreshLook;

// Made by one of the functions, which each ask for all that a control of the kind needs.
struct ConfigPopup::Control {
    using Box = ControlBox PopupLayout::*;
    using Font = GdiFontOwner ConfigPopup::*;
    using Window = HWND ConfigPopup::*;
    using List = std::unique_ptr<DropList> ConfigPopup::*;

    const WCHAR* windowClass; // null: a drop-down list
    DWORD style;
    const WCHAR* text;
    Box box;
    Font font;
    int id = 0;              // 0: nobody asks for it
    Window window = nullptr; // where its window is kept
    List list = nullptr;
    const ButtonLook* look = nullptr; // of an owner-drawn button

    static constexpr Control Label(const WCHAR* text, Box box, Font font = &ConfigPopup::labelFont_,
                                   DWORD style = 0) {
        return {TEXT("STATIC"), style, text, box, font};
    }
    static constexpr Control Edit(int id, Box box, Window window) {
        return {TEXT("EDIT"), ES_PASSWORD | ES_AUTOHSCROLL, TEXT(""),
                box,          &ConfigPopup::bodyFont_,      id,
                window};
    }
    static constexpr Control DropDown(int id, Box box, List list) {
        return {nullptr, 0, nullptr, box, &ConfigPopup::bodyFont_, id, nullptr, list};
    }
    static constexpr Control Button(int id, const WCHAR* text, Box box, Font font, Window window,
                                    const ButtonLook& look) {
        return {TEXT("BUTTON"), BS_OWNERDRAW, text, box, font, id, window, nullptr, &look};
    }
};
