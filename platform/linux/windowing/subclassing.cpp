#include "windowing/subclassing.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace windowing {

// One message on its way through the subclasses that there were when it came: who is added
// meanwhile does not see it, and who is removed meanwhile sees it no more.
struct SubclassCall {
    std::vector<std::shared_ptr<Subclass>> chain;
    std::size_t next = 0;
};

namespace {

auto FindSubclass(Window& window, SUBCLASSPROC procedure, UINT_PTR id) {
    return std::find_if(window.subclasses.begin(), window.subclasses.end(), [&](const auto& one) {
        return one->procedure == procedure && one->id == id;
    });
}

LRESULT CallNext(Window& window, SubclassCall& call, UINT message, WPARAM wParam, LPARAM lParam) {
    const std::size_t before = call.next;
    while (call.next < call.chain.size() && call.chain[call.next]->removed) {
        ++call.next;
    }
    LRESULT result = 0;
    if (call.next == call.chain.size()) {
        result = window.procedure(window.handle, message, wParam, lParam);
    } else {
        const Subclass& subclass = *call.chain[call.next++];
        result = subclass.procedure(window.handle, message, wParam, lParam, subclass.id,
                                    subclass.reference);
    }
    call.next = before;
    return result;
}

} // namespace

LRESULT CallFirst(Window& window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (window.subclasses.empty()) {
        return window.procedure(window.handle, message, wParam, lParam);
    }
    SubclassCall call{window.subclasses};
    SubclassCall* const outer = std::exchange(window.subclassCall, &call);
    const LRESULT result = CallNext(window, call, message, wParam, lParam);
    window.subclassCall = outer;
    return result;
}

} // namespace windowing

using windowing::Find;
using windowing::Window;

BOOL SetWindowSubclass(HWND handle, SUBCLASSPROC procedure, UINT_PTR id, DWORD_PTR reference) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr || procedure == nullptr) {
        return FALSE;
    }
    const auto found = windowing::FindSubclass(*window, procedure, id);
    if (found != window->subclasses.end()) {
        (*found)->reference = reference;
        return TRUE;
    }
    window->subclasses.insert(
        window->subclasses.begin(),
        std::make_shared<windowing::Subclass>(windowing::Subclass{procedure, id, reference}));
    return TRUE;
}

BOOL RemoveWindowSubclass(HWND handle, SUBCLASSPROC procedure, UINT_PTR id) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr) {
        return FALSE;
    }
    const auto found = windowing::FindSubclass(*window, procedure, id);
    if (found == window->subclasses.end()) {
        return FALSE;
    }
    (*found)->removed = true;
    window->subclasses.erase(found);
    return TRUE;
}

LRESULT DefSubclassProc(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr || window->subclassCall == nullptr) {
        return 0; // gone meanwhile, or nothing is in progress
    }
    return windowing::CallNext(*window, *window->subclassCall, message, wParam, lParam);
}
