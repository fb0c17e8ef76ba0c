// The registry's calls: keys of the current user, each in a file of its own below the user's folder
// of settings.
#include "files/user_folders.h"
#include "process/never_destroyed.h"
#include "registry/value_store.h"
#include "text/utf.h"

#include <algorithm>
#include <deque>
#include <map>
#include <mutex>
#include <string_view>
#include <utility>

namespace {

// Any thread calls any operation. A handle is an address that is never used again, so one that has
// been closed is known as such.
class KeyTable {
public:
    HKEY Add(std::unique_ptr<registry::ValueStore> store) {
        const std::lock_guard lock(mutex_);
        const HKEY key = reinterpret_cast<HKEY>(&places_.emplace_back());
        stores_.emplace(key, std::move(store));
        return key;
    }

    bool Remove(HKEY key) {
        const std::lock_guard lock(mutex_);
        return stores_.erase(key) == 1;
    }

    // `work` on the key's store, or ERROR_INVALID_HANDLE.
    template <typename Work>
    LSTATUS With(HKEY key, const Work& work) {
        const std::lock_guard lock(mutex_);
        const auto found = stores_.find(key);
        return found == stores_.end() ? ERROR_INVALID_HANDLE : work(*found->second);
    }

private:
    // Guards both members and every store in use, so that none is closed meanwhile. A store waits
    // for other processes under it, never for another thread of this one.
    std::mutex mutex_;
    std::map<HKEY, std::unique_ptr<registry::ValueStore>> stores_;
    std::deque<char> places_; // of every handle that there was
};

// Made at first use and never destroyed: keys may be closed after the static destructors.
KeyTable& Keys() {
    static KeyTable& table = process::NeverDestroyed<KeyTable>();
    return table;
}

bool IsFolderName(std::string_view part) {
    return !part.empty() && part != "." && part != ".." && part.find('/') == std::string_view::npos;
}

// "Software\Program\Key" is program/key.db below the user's settings: the first part of a key,
// which says there that the others belong to a program, is what that folder says here. Empty for a
// path that is no key's.
std::string FileOfKey(LPCWSTR path) {
    std::string file = files::ConfigFolder();
    const std::string key = text::ToUtf8(path);
    std::size_t depth = 0;
    for (std::size_t begin = 0; begin <= key.size(); ++depth) {
        const std::size_t end = std::min(key.find('\\', begin), key.size());
        std::string part = key.substr(begin, end - begin);
        if (!IsFolderName(part)) {
            return {};
        }
        std::transform(part.begin(), part.end(), part.begin(), [](char letter) {
            return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
        });
        if (depth > 0) {
            file += "/" + part;
        }
        begin = end + 1;
    }
    return depth >= 2 && file.starts_with('/') ? file + ".db" : std::string();
}

std::string NameOf(LPCWSTR name) {
    return name != nullptr ? text::ToUtf8(name) : std::string(); // null is the key's unnamed value
}

} // namespace

LSTATUS RegCreateKeyExW(HKEY root, LPCWSTR path, DWORD /*reserved*/, LPWSTR /*keyClass*/,
                        DWORD /*options*/, REGSAM /*access*/, SECURITY_ATTRIBUTES* /*security*/,
                        PHKEY key, LPDWORD disposition) {
    if (key == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    *key = nullptr;
    if (root != HKEY_CURRENT_USER) {
        return ERROR_INVALID_HANDLE;
    }
    const std::string file = path != nullptr ? FileOfKey(path) : std::string();
    if (file.empty() || disposition != nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    std::unique_ptr<registry::ValueStore> store = registry::ValueStore::Open(file);
    if (store == nullptr) {
        return ERROR_ACCESS_DENIED;
    }
    *key = Keys().Add(std::move(store));
    return ERROR_SUCCESS;
}

LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                         LPDWORD size) {
    if (reserved != nullptr || (data != nullptr && size == nullptr)) {
        return ERROR_INVALID_PARAMETER;
    }
    return Keys().With(key, [&](registry::ValueStore& store) -> LSTATUS {
        const std::optional<registry::Value> value = store.Read(NameOf(name));
        if (!value) {
            return ERROR_FILE_NOT_FOUND;
        }
        if (type != nullptr) {
            *type = value->type;
        }
        if (size == nullptr) {
            return ERROR_SUCCESS;
        }
        const auto bytes = static_cast<DWORD>(value->data.size());
        const DWORD room = std::exchange(*size, bytes);
        if (data == nullptr) {
            return ERROR_SUCCESS;
        }
        if (room < bytes) {
            return ERROR_MORE_DATA;
        }
        std::copy(value->data.begin(), value->data.end(), data);
        return ERROR_SUCCESS;
    });
}

LSTATUS RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data,
                       DWORD size) {
    if (reserved != 0 || (data == nullptr && size != 0)) {
        return ERROR_INVALID_PARAMETER;
    }
    return Keys().With(key, [&](registry::ValueStore& store) -> LSTATUS {
        return store.Write(NameOf(name), type, data, size) ? ERROR_SUCCESS : ERROR_WRITE_FAULT;
    });
}

LSTATUS RegCloseKey(HKEY key) {
    return Keys().Remove(key) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}
