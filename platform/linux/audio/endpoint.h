// An endpoint as the sound server describes it, its id and its mix format. Values only: nothing
// here talks to the server.
#pragma once

#include <mmreg.h>
#include <mmdeviceapi.h>
#include <pulse/channelmap.h>
#include <pulse/sample.h>

#include <string>
#include <string_view>
#include <vector>

namespace audio {

struct Endpoint {
    EDataFlow flow = eRender;
    std::string name;        // the server's name of the sink or source, unique in its flow
    std::string description; // for people, UTF-8; the server may give several the same one
    std::string source;      // what to record from: the source itself, or the sink's monitor
    pa_sample_spec format{}; // the device's own; only rate and channels are used
    pa_channel_map channels{};
    bool pluggedIn = true;       // false when the server knows that nothing is in the socket
    bool followsDefault = false; // its streams move along when the server's default changes
};

// In the place of a server's name: whatever the default is. No server takes it for a name of its
// own.
inline constexpr std::string_view kDefaultName = "@default";

// What people read in its place.
inline constexpr std::string_view kDefaultDescription = "Default";

// "render:<name>" or "capture:<name>": a name alone does not tell in which list to look it up.
std::u16string EndpointId(EDataFlow flow, std::string_view name);

// What the id says; false when it is none of ours. Whether such an endpoint exists is another
// question.
bool ParseEndpointId(LPCWSTR id, EDataFlow& flow, std::string& name);

// Gives endpoints of the same description numbers, as Windows does: "2- USB Audio" is the second.
// They are counted in the order of their names, which is the same after a restart.
void NumberEqualDescriptions(std::vector<Endpoint>& endpoints);

// 32-bit float in the device's own rate and channels.
WAVEFORMATEXTENSIBLE MixFormat(const Endpoint& endpoint);

} // namespace audio
