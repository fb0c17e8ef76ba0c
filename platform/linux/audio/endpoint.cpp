// Ids, formats and texts of endpoints.
#include "audio/endpoint.h"

#include <ksmedia.h>

#include <array>
#include <utility>

namespace audio {

namespace {

constexpr std::array<std::pair<EDataFlow, std::string_view>, 2> kIdPrefixes{
    {{eRender, "render:"}, {eCapture, "capture:"}}};

std::string_view IdPrefix(EDataFlow flow) {
    return kIdPrefixes[flow == eRender ? 0 : 1].second;
}

std::string Utf8Text(std::u16string_view wide) {
    const int length = static_cast<int>(wide.size());
    const int bytes =
        WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, utf8.data(), bytes, nullptr, nullptr);
    return utf8;
}

} // namespace

std::u16string WideText(std::string_view utf8) {
    const int length = static_cast<int>(utf8.size());
    const int units = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0);
    std::u16string wide(static_cast<std::size_t>(units), u'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, wide.data(), units);
    return wide;
}

std::u16string EndpointId(const Endpoint& endpoint) {
    return WideText(std::string(IdPrefix(endpoint.flow)) + endpoint.name);
}

bool ParseEndpointId(LPCWSTR id, EDataFlow& flow, std::string& name) {
    const std::string text = Utf8Text(id);
    for (const auto& [prefixFlow, prefix] : kIdPrefixes) {
        if (text.starts_with(prefix)) {
            flow = prefixFlow;
            name = text.substr(prefix.size());
            return true;
        }
    }
    return false;
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
