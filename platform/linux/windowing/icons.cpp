// Cursors of the system, and icons from the program's resources.
#include "windowing/icons.h"

#include "application/application.h"

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QIcon>
#include <QPixmap>
#include <QStyle>

#include <algorithm>
#include <map>
#include <memory>
#include <vector>

struct HICON__ {
    QImage picture; // null in a cursor
    Qt::CursorShape shape = Qt::ArrowCursor;
    bool shared = false; // is everybody's, and stays
};

namespace windowing {

namespace {

constexpr ULONG_PTR kLastResourceNumber = 0xFFFF;
constexpr int kUsualIconSize = 32; // pixels

using Icons = std::map<HICON, std::unique_ptr<HICON__>>;

// Never destroyed: pictures outlive Qt's statics badly.
Icons& AllIcons() {
    static Icons& icons = *std::make_unique<Icons>().release();
    return icons;
}

HICON Keep(HICON__ icon) {
    auto kept = std::make_unique<HICON__>(std::move(icon));
    HICON handle = kept.get();
    AllIcons().emplace(handle, std::move(kept));
    return handle;
}

ULONG_PTR NumberOf(LPCWSTR name) {
    return reinterpret_cast<ULONG_PTR>(name);
}

// The smallest picture that is large enough, else the largest.
QString NearestPicture(const QDir& folder, int size) {
    std::vector<int> sizes;
    for (const QFileInfo& file : folder.entryInfoList({QStringLiteral("*.png")}, QDir::Files)) {
        sizes.push_back(file.baseName().toInt());
    }
    if (sizes.empty()) {
        return {};
    }
    std::sort(sizes.begin(), sizes.end());
    const auto enough = std::lower_bound(sizes.begin(), sizes.end(), size);
    const int nearest = enough != sizes.end() ? *enough : sizes.back();
    return folder.filePath(QString::number(nearest) + QStringLiteral(".png"));
}

QImage IconPicture(ULONG_PTR number, int width, int height) {
    const QDir folder(QStringLiteral(":/icon/") + QString::number(number));
    const QString file = NearestPicture(folder, std::max(width, height));
    QImage picture = file.isEmpty() ? QImage() : QImage(file);
    if (picture.isNull() || picture.size() == QSize(width, height)) {
        return picture;
    }
    return picture.scaled(width, height, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

} // namespace

Qt::CursorShape ShapeOf(HCURSOR cursor) {
    if (cursor == nullptr) {
        return Qt::BlankCursor;
    }
    const auto found = AllIcons().find(cursor);
    return found == AllIcons().end() ? Qt::ArrowCursor : found->second->shape;
}

QImage PictureOf(HICON icon) {
    const auto found = AllIcons().find(icon);
    return found == AllIcons().end() ? QImage() : found->second->picture;
}

} // namespace windowing

HCURSOR LoadCursorW(HINSTANCE instance, LPCWSTR name) {
    struct SystemCursor {
        LPCWSTR name;
        HCURSOR cursor;
    };
    static const SystemCursor cursors[] = {
        {IDC_ARROW, windowing::Keep({{}, Qt::ArrowCursor, true})},
        {IDC_IBEAM, windowing::Keep({{}, Qt::IBeamCursor, true})},
        {IDC_SIZENS, windowing::Keep({{}, Qt::SizeVerCursor, true})},
        {IDC_HAND, windowing::Keep({{}, Qt::PointingHandCursor, true})},
    };
    const auto* const found = std::find_if(std::begin(cursors), std::end(cursors),
                                           [&](const auto& one) { return one.name == name; });
    return instance != nullptr || found == std::end(cursors) ? nullptr : found->cursor;
}

HANDLE LoadImageW(HINSTANCE /*instance*/, LPCWSTR name, UINT type, int width, int height,
                  UINT /*flags*/) {
    const ULONG_PTR number = windowing::NumberOf(name);
    if (type != IMAGE_ICON || number == 0 || number > windowing::kLastResourceNumber || width < 0 ||
        height < 0) {
        return nullptr;
    }
    QImage picture = windowing::IconPicture(number, width != 0 ? width : windowing::kUsualIconSize,
                                            height != 0 ? height : windowing::kUsualIconSize);
    return picture.isNull() ? nullptr
                            : windowing::Keep({std::move(picture), Qt::ArrowCursor, false});
}

HICON LoadIconW(HINSTANCE instance, LPCWSTR name) {
    if (instance != nullptr) {
        return static_cast<HICON>(LoadImageW(instance, name, IMAGE_ICON, 0, 0, 0));
    }
    if (name != IDI_APPLICATION || application::Instance() == nullptr) {
        return nullptr;
    }
    static HICON application = windowing::Keep({QApplication::style()
                                                    ->standardIcon(QStyle::SP_ComputerIcon)
                                                    .pixmap(windowing::kUsualIconSize)
                                                    .toImage(),
                                                Qt::ArrowCursor, true});
    return application;
}

BOOL DestroyIcon(HICON icon) {
    const auto found = windowing::AllIcons().find(icon);
    if (found == windowing::AllIcons().end()) {
        return FALSE;
    }
    if (!found->second->shared) {
        windowing::AllIcons().erase(found);
    }
    return TRUE;
}
