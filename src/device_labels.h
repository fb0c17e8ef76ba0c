// How audio devices are listed for the user, and which one is chosen. Pure functions of records.
#pragma once

#include "audio_devices.h"

#include <vector>

// The device's name, and its rate where that is known.
WideString DeviceLabel(const AudioDeviceInfo& device);

// The entry to select: the last device of that exact name, else the first entry. There always is
// one: a list without devices says so in its only entry.
int ChosenDevice(const std::vector<AudioDeviceInfo>& devices, const WideString& savedName);
