// The settings of a run as they are stored. Knows the registry values and the language tables;
// nothing of runs.
#pragma once

#include "languages.h"

#include <windows.h>

#include <functional>

// UI thread only. `key` is the owner's, which may be null and is read afresh at each use.
class ConfigPopup {
public:
    using Start = std::function<void(const ConfigData&)>;

    ConfigPopup(HWND owner, const HKEY* key, Start onStart);

    // The choice for a run that starts now.
    ConfigData BuildConfig() const;

    void Show();
    void Hide();
    bool IsVisible() const { return visible_; }
    // Puts it beside its owner, wherever that is now.
    void Reposition();
    // Tells whether a run is up, during which no other can be started here.
    void SetRunning(bool running);

private:
    HWND owner_;
    const HKEY* key_;
    Start onStart_;
    bool visible_ = false;
    bool running_ = false;
};
