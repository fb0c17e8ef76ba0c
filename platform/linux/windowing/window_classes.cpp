#include "windowing/window_classes.h"

#include "process/never_destroyed.h"

#include <algorithm>
#include <cstddef>
#include <deque>

namespace windowing {

namespace {

using Classes = std::deque<WindowClass>; // addresses stay

// Never destroyed: windows may outlive main().
Classes& AllClasses() {
    static Classes& classes = process::NeverDestroyed<Classes>();
    return classes;
}

char16_t Lower(char16_t unit) {
    return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit - u'A' + u'a') : unit;
}

bool SameName(std::u16string_view one, std::u16string_view other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char16_t a, char16_t b) { return Lower(a) == Lower(b); });
}

const WindowClass* Known(std::u16string_view name) {
    const auto& classes = AllClasses();
    const auto found = std::find_if(classes.begin(), classes.end(), [&](const WindowClass& one) {
        return SameName(one.name, name);
    });
    return found == classes.end() ? nullptr : &*found;
}

ATOM Add(const WNDCLASSEXW& windowClass) {
    constexpr std::size_t kFirstAtom = 0xC000;
    auto& classes = AllClasses();
    const auto atom = static_cast<ATOM>(kFirstAtom + classes.size());
    classes.push_back({windowClass.lpszClassName, windowClass.style, windowClass.lpfnWndProc,
                       windowClass.hIcon, windowClass.hCursor, windowClass.hbrBackground, atom});
    return atom;
}

void AddSystemClasses() {
    static const bool added = [] {
        for (const WNDCLASSEXW& windowClass : SystemClasses()) {
            Add(windowClass);
        }
        return true;
    }();
    static_cast<void>(added);
}

} // namespace

const WindowClass* FindClass(std::u16string_view name) {
    AddSystemClasses();
    return Known(name);
}

} // namespace windowing

ATOM RegisterClassExW(const WNDCLASSEXW* windowClass) {
    if (windowClass == nullptr || windowClass->cbSize != sizeof(WNDCLASSEXW) ||
        windowClass->lpszClassName == nullptr || windowClass->lpfnWndProc == nullptr ||
        windowing::FindClass(windowClass->lpszClassName) != nullptr) {
        return 0;
    }
    return windowing::Add(*windowClass);
}
