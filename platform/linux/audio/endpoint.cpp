// Ids, formats and texts of endpoints.
#include "audio/endpoint.h"

#include "text/utf.h"

#include <ksmedia.h>

#include <algorithm>
#include <array>
#include <set>
#include <string_view>
#include <utility>

namespace audio {

namespace {

constexpr std::array<std::pair<EDataFlow, std::string_view>, 2> kIdPrefixes{
    {{eRender, "render:"}, {eCapture, "capture:"}}};

std::string_view IdPrefix(EDataFlow flow) {
    return kIdPrefixes[flow == eRender ? 0 : 1].second;
}

} // namespace

std::u16string EndpointId(EDataFlow flow, std::string_view name) {
    return text::ToWide(std::string(IdPrefix(flow)).append(name));
}

bool ParseEndpointId(LPCWSTR id, EDataFlow& flow, std::string& name) {
    const std::string whole = text::ToUtf8(id);
    for (const auto& [prefixFlow, prefix] : kIdPrefixes) {
        if (whole.starts_with(prefix)) {
            flow = prefixFlow;
            name = whole.substr(prefix.size());
            return true;
        }
    }
    return false;
}

void NumberEqualDescriptions(std::vector<Endpoint>& endpoints) {
    std::vector<Endpoint*> byName;
    byName.reserve(endpoints.size());
    for (Endpoint& endpoint : endpoints) {
        byName.push_back(&endpoint);
    }
    std::sort(byName.begin(), byName.end(),
              [](const Endpoint* one, const Endpoint* two) { return one->name < two->name; });
    std::set<std::string> taken{std::string(kDefaultDescription)};
    for (Endpoint* const endpoint : byName) {
        const std::string description = endpoint->description;
        for (int number = 2; !description.empty() && !taken.insert(endpoint->description).second;
             ++number) {
            endpoint->description = std::to_string(number) + "- " + description;
        }
    }
}

WAVEFORMATEXTENSIBLE MixFormat(const Endpoint& endpoint) {
    constexpr WORD kBitsPerSample = 32;
    WAVEFORMATEXTENSIBLE format{};
    WAVEFORMATEX& head = format.Format;
    head.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    head.nChannels = endpoint.format.channels;
    head.nSamplesPerSec = endpoint.format.rate;
    head.wBitsPerSample = kBitsPerSample;
    head.nBlockAlign = static_cast<WORD>(head.nChannels * kBitsPerSample / 8);
    head.nAvgBytesPerSec = head.nSamplesPerSec * head.nBlockAlign;
    head.cbSize = sizeof format - sizeof head;
    format.Samples.wValidBitsPerSample = kBitsPerSample;
    format.dwChannelMask = 0; // no places told: the channels come in the server's order
    format.SubFormat = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
    return format;
}

} // namespace audio
