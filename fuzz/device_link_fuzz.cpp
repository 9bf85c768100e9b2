// Pasted links are user input: any text must give an identifier or an error,
// and an identifier must survive being written out and read back.
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "device_link.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    DeviceLinkResult const result = parseDeviceLink(std::string_view(reinterpret_cast<char const*>(data), size));
    if (!result.identifier) {
        if (result.error.empty()) std::abort();
        return 0;
    }
    if (!result.error.empty() || result.identifier->name.size() > kDeviceLinkMaxNameBytes) std::abort();
    DeviceLinkResult const again = parseDeviceLink(makeDeviceLink(*result.identifier));
    if (!again.identifier || *again.identifier != *result.identifier) std::abort();
    return 0;
}

extern "C" void zelmorFuzzSeeds(std::vector<std::vector<uint8_t>>& seeds) {
    std::string_view const links[] = {
        "https://zelmor.link?n=426f6174&s=0000000000001a2b&h=41&c=----_-ABEDJUdpi63P4-Pw==&"
        "k=4OHi4-Tl5ufo6err7O3u7_Dx8vP09fb3-Pn6-_z9_v8=",
        " HTTPS://relay.example.org:8443/?k=4OHi4+Tl5ufo6err7O3u7/Dx8vP09fb3+Pn6+/z9/v8&"
        "c=%2B%2B%2B%2B%2F%2BABEDJUdpi63P4%2BPw%3D%3D&h=23&s=FEDCBA9876543210&"
        "n=4142434445464748494A4B4C4D4E4F505152535455565758595A303132333435\n",
    };
    for (auto link : links) seeds.emplace_back(link.begin(), link.end());
}
