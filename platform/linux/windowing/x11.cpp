#include "windowing/x11.h"

#include <QtGui/qguiapplication.h>
#include <QtGui/qguiapplication_platform.h>
#include <xcb/shape.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>

namespace windowing {

namespace {

struct FreeDeleter {
    void operator()(void* memory) const { std::free(memory); } // NOLINT: xcb's replies are malloc's
};
template <typename Reply>
using ReplyOwner = std::unique_ptr<Reply, FreeDeleter>;

xcb_connection_t* Connection() {
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 != nullptr ? x11->connection() : nullptr;
}

xcb_atom_t CompositorSelection(xcb_connection_t* connection) {
    static const std::string name = "_NET_WM_CM_S0";
    const auto cookie =
        xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(name.size()), name.c_str());
    const ReplyOwner<xcb_intern_atom_reply_t> reply(
        xcb_intern_atom_reply(connection, cookie, nullptr));
    return reply != nullptr ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

xcb_rectangle_t ToX(const RECT& rect) {
    return {static_cast<std::int16_t>(rect.left), static_cast<std::int16_t>(rect.top),
            static_cast<std::uint16_t>(rect.right - rect.left),
            static_cast<std::uint16_t>(rect.bottom - rect.top)};
}

void SetRegion(WId window, xcb_shape_kind_t kind, const Region& region) {
    xcb_connection_t* connection = Connection();
    if (connection == nullptr) {
        return;
    }
    const auto target = static_cast<xcb_window_t>(window);
    if (!region.has_value()) {
        xcb_shape_mask(connection, XCB_SHAPE_SO_SET, kind, target, 0, 0, XCB_NONE);
    } else {
        std::vector<xcb_rectangle_t> rectangles(region->size());
        std::transform(region->begin(), region->end(), rectangles.begin(), ToX);
        xcb_shape_rectangles(connection, XCB_SHAPE_SO_SET, kind, XCB_CLIP_ORDERING_YX_BANDED,
                             target, 0, 0, static_cast<std::uint32_t>(rectangles.size()),
                             rectangles.data());
    }
    xcb_flush(connection);
}

} // namespace

bool OnX11() {
    return Connection() != nullptr;
}

bool HasCompositor() {
    xcb_connection_t* connection = Connection();
    if (connection == nullptr) {
        return true;
    }
    static const xcb_atom_t selection = CompositorSelection(connection);
    const ReplyOwner<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(
        connection, xcb_get_selection_owner(connection, selection), nullptr));
    return reply != nullptr && reply->owner != XCB_NONE;
}

void SetInputRegion(WId window, const Region& region) {
    SetRegion(window, XCB_SHAPE_SK_INPUT, region);
}

void SetBoundingRegion(WId window, const Region& region) {
    SetRegion(window, XCB_SHAPE_SK_BOUNDING, region);
}

} // namespace windowing
