// "cloud_devices.cfg" is a file in the user's data folder that a person may
// edit. Whatever it holds, the store loads exactly the lines that are valid
// links, in file order, duplicates kept; what it then saves is one link per
// line, private to the user, and loads back to the same list.
#include <sys/stat.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "device_link.h"
#include "fuzz_check.h"
#include "local_store.h"
#include "scratch_directory.h"

namespace {

constexpr char kFileName[] = "cloud_devices.cfg";

std::string readText(std::filesystem::path const& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    static ScratchDirectory const scratch;
    std::filesystem::path const file = scratch.path() / kFileName;
    std::string const text(reinterpret_cast<char const*>(data), size);
    std::ofstream(file, std::ios::binary | std::ios::trunc) << text;

    std::vector<Zelmor::DeviceIdentifier> expected;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (DeviceLinkResult result = parseDeviceLink(line); result.identifier) expected.push_back(*result.identifier);

    LocalStore store(scratch.path());
    fuzzCheck(store.remoteDevices() == expected, "the valid lines are loaded in order");
    fuzzCheck(store.saveRemoteDevices(), "the list is saved");
    std::string saved;
    for (auto const& id : expected) saved += makeDeviceLink(id) + "\n";
    fuzzCheck(readText(file) == saved, "a saved file is one link per line");
    struct stat info {};
    fuzzCheck(::stat(file.c_str(), &info) == 0 && (info.st_mode & 0777) == 0600, "the saved file is private");
    fuzzCheck(LocalStore(scratch.path()).remoteDevices() == expected, "a saved list loads back the same");
    return 0;
}

extern "C" void zelmorFuzzSeeds(std::vector<std::vector<uint8_t>>& seeds) {
    std::string const boat =
        "https://zelmor.link?n=426f6174&s=0000000000001a2b&h=41&c=----_-ABEDJUdpi63P4-Pw==&"
        "k=4OHi4-Tl5ufo6err7O3u7_Dx8vP09fb3-Pn6-_z9_v8=";
    std::string const texts[] = {
        boat + "\n",
        boat + "\n\nnot a link\n" + boat + "\r\n  " + boat,
        " HTTPS://relay.example.org:8443/?k=4OHi4+Tl5ufo6err7O3u7/Dx8vP09fb3+Pn6+/z9/v8&"
        "c=%2B%2B%2B%2B%2F%2BABEDJUdpi63P4%2BPw%3D%3D&h=23&s=FEDCBA9876543210&n=\n",
    };
    for (auto const& text : texts) seeds.emplace_back(text.begin(), text.end());
}
