// The popup's lists of audio devices.
#include "config_popup.h"
#include "device_labels.h"
#include "stored_values.h"

namespace {

// Shows `devices` and selects the one whose name is stored, else the first.
void Fill(DropList& list, const std::vector<AudioDeviceInfo>& devices, const WideString& savedName,
          const WCHAR* whenEmpty) {
    list.Clear();
    for (const AudioDeviceInfo& device : devices) {
        list.items_.push_back(DeviceLabel(device));
    }
    if (devices.empty()) {
        list.items_.emplace_back(whenEmpty);
    }
    list.selected_ = ChosenDevice(devices, savedName);
    InvalidateRect(list.Button(), nullptr, FALSE);
}

// Whether the list shows another device than the saved one, and not because the user wanted so.
bool IsMissing(const WideString& savedName, const AudioDeviceInfo* shown, bool chosen) {
    return !savedName.empty() && !chosen && (shown == nullptr || shown->name != savedName);
}

} // namespace

void ConfigPopup::FillMicList() {
    micDevices_ = AudioCapture::EnumerateDevices(eCapture);
    Fill(*micList_, micDevices_, ReadStoredText(*configKeyRef_, stored::kMicrophone),
         TEXT("(No microphone found)"));
    micChosen_ = false;
}

void ConfigPopup::FillLoopbackList() {
    loopbackDevices_ = AudioCapture::EnumerateDevices(eRender);
    Fill(*loopbackList_, loopbackDevices_, ReadStoredText(*configKeyRef_, stored::kLoopback),
         TEXT("(No playback device found)"));
    loopbackChosen_ = false;
}

void ConfigPopup::FindMissingDevices() {
    HKEY key = *configKeyRef_;
    if (IsMissing(ReadStoredText(key, stored::kMicrophone), Chosen(*micList_, micDevices_),
                  micChosen_)) {
        FillMicList();
    }
    if (IsMissing(ReadStoredText(key, stored::kLoopback), Chosen(*loopbackList_, loopbackDevices_),
                  loopbackChosen_)) {
        FillLoopbackList();
    }
}
