#include "station/client/decode.h"

#include "station/client/encode.h"

#include <algorithm>

namespace station
{

static Meaning gib(unsigned size) { return {std::to_string(size) + " GiB", Json{{"gib", size}}}; }

Meaning gib_byte(const Bytes &data, const Bytes &) { return gib(data.empty() ? 0 : data[0]); }

// The length stops at the first zero digit, so the digits are taken from the packet.
Meaning gib_base255(const Bytes &, const Bytes &packet)
{
    const unsigned low = packet.size() > DATA_OFFSET ? packet[DATA_OFFSET] : 0;
    const unsigned high = packet.size() > DATA_OFFSET + 1 ? packet[DATA_OFFSET + 1] : 0;
    return gib(low + high * 255);
}

// "rgb0:F", a zero byte, "acc:F", a zero byte
Meaning missing_components(const Bytes &data, const Bytes &)
{
    std::string text = "missing:";
    Json names = Json::array();
    std::string item;
    for (uint8_t byte : data) {
        if (byte != 0) {
            item += static_cast<char>(byte);
            continue;
        }
        item.resize(std::min(item.rfind(":F"), item.size()));
        text += " " + item;
        names.push_back(item);
        item.clear();
    }
    return {text, Json{{"missing", names}}};
}

Meaning bluetooth_address(const Bytes &data, const Bytes &)
{
    std::string address;
    for (size_t i = 0; i < data.size(); i++) {
        if (i % 2 == 0 && !address.empty())
            address += ':';
        address += static_cast<char>(data[i]);
    }
    return {address, Json{{"address", address}}};
}

// "cplc:<84 digits>mac:<16 digits>"
Meaning cplc_and_mac(const Bytes &data, const Bytes &)
{
    const std::string text = to_text(data);
    const size_t mac = text.find("mac:");
    if (text.compare(0, 5, "cplc:") != 0 || mac == std::string::npos)
        return {text, {}};
    const std::string cplc = text.substr(5, mac - 5);
    const std::string identifier = text.substr(mac + 4);
    return {"CPLC " + cplc + ", identifier " + identifier, Json{{"cplc", cplc}, {"mac", identifier}}};
}

} // namespace station
