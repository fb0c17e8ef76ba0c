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

} // namespace

void ConfigPopup::FillMicList() {
    micDevices_ = AudioCapture::EnumerateDevices(eCapture);
    Fill(*micList_, micDevices_, ReadStoredText(*configKeyRef_, TEXT("mic_device_name")),
         TEXT("(No microphone found)"));
}

void ConfigPopup::FillLoopbackList() {
    loopbackDevices_ = AudioCapture::EnumerateDevices(eRender);
    Fill(*loopbackList_, loopbackDevices_,
         ReadStoredText(*configKeyRef_, TEXT("loopback_device_name")),
         TEXT("(No playback device found)"));
}
