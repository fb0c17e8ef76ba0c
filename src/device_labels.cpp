#include "device_labels.h"

#include <iterator>

WideString DeviceLabel(const AudioDeviceInfo& device) {
    if (device.sampleRate == 0) {
        return device.name;
    }
    WCHAR rate[24];
    FormatWide(rate, std::size(rate), TEXT("  [%u Hz]"), unsigned{device.sampleRate});
    return device.name + rate;
}

int ChosenDevice(const std::vector<AudioDeviceInfo>& devices, const WideString& savedName) {
    int chosen = 0;
    for (std::size_t i = 0; i < devices.size(); ++i) {
        if (devices[i].name == savedName) {
            chosen = static_cast<int>(i);
        }
    }
    return chosen;
}
