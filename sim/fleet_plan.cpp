#include "fleet_plan.h"

#include <algorithm>
#include <charconv>

#include <fmt/core.h>

namespace sim {

namespace {

// Names a fleet takes in order when the options give none: houses and boats
// that live off the grid on a house battery.
constexpr std::string_view kNames[] = {
    "Van house bank", "Cabin solar bank", "Narrowboat bank",     "Workshop battery", "Tiny house store",
    "Sailboat bank",  "Shepherd's hut",   "Camper service bank", "Allotment shed",   "Lookout cabin",
};
constexpr uint64_t kFirstSerial = 0x5A4C000000000101;
constexpr std::string_view kLockedDevicePassword = "kingfisher";
constexpr size_t kMaxNameBytes = 32;

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        auto const lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
        return lower(x) == lower(y);
    });
}

// The whole text as a number, or nothing.
template <class Number, class... Format>
std::optional<Number> parseNumber(std::string_view text, Format... format) {
    Number value{};
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, format...);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

// Each setter answers with what is wrong with the value, or nothing.
using Setter = std::string (*)(DevicePlan& plan, std::string_view value);

std::string setText(std::string& field, std::string_view value, size_t maxBytes) {
    if (value.empty() || value.size() > maxBytes) return fmt::format("needs 1 to {} bytes", maxBytes);
    if (std::any_of(value.begin(), value.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }))
        return "cannot contain control characters";
    field = value;
    return {};
}

template <class Number>
std::string setNumber(Number& field, std::string_view value, Number min, Number max) {
    std::optional<Number> const number = parseNumber<Number>(value);
    if (!number || *number < min || *number > max) return fmt::format("needs a whole number from {} to {}", min, max);
    field = *number;
    return {};
}

std::string setFraction(double& field, std::string_view value) {
    std::optional<double> const fraction = parseNumber<double>(value);
    if (!fraction || !(*fraction >= 0 && *fraction <= 1)) return "needs a fraction from 0 to 1";
    field = *fraction;
    return {};
}

std::string setCommandFailure(std::optional<CommandFailure>& field, std::string_view value) {
    std::optional<CommandFailure> const failure = parseCommandFailure(value);
    if (!failure) return "needs a command code in hexadecimal, optionally followed by @N (N from 1)";
    field = failure;
    return {};
}

// "V1:V2:I:P:T", each read straight to the nearest 32-bit float ("nan" too).
std::string setHeldReading(std::optional<HeldReading>& field, std::string_view value) {
    HeldReading reading;
    float* const parts[] = {&reading.voltage1, &reading.voltage2, &reading.current, &reading.power,
                            &reading.temperature};
    for (size_t i = 0; i < std::size(parts); ++i) {
        size_t const end = i + 1 < std::size(parts) ? value.find(':') : value.size();
        std::optional<float> const number =
            end == std::string_view::npos ? std::nullopt : parseNumber<float>(value.substr(0, end));
        if (!number) return "needs five numbers V1:V2:I:P:T (volts, volts, amperes, watts, degrees Celsius)";
        *parts[i] = *number;
        value.remove_prefix(std::min(end + 1, value.size()));
    }
    field = reading;
    return {};
}

struct Key {
    std::string_view name;
    bool takesValue;
    Setter set;
};

constexpr Key kKeys[] = {
    {"name", true, [](DevicePlan& s, std::string_view v) { return setText(s.name, v, kMaxNameBytes); }},
    {"serial", true,
     [](DevicePlan& s, std::string_view v) -> std::string {
         std::optional<uint64_t> const serial = v.size() <= 16 ? parseNumber<uint64_t>(v, 16) : std::nullopt;
         if (!serial || *serial == 0) return "needs 1 to 16 hexadecimal digits, not all zero";
         s.serial = *serial;
         return {};
     }},
    {"user", true, [](DevicePlan& s, std::string_view v) { return setText(s.userPassword, v, 64); }},
    {"master", true, [](DevicePlan& s, std::string_view v) { return setText(s.masterPassword, v, 64); }},
    {"interval", true,
     [](DevicePlan& s, std::string_view v) { return setNumber(s.logIntervalSeconds, v, 1u, kMaxLogIntervalSeconds); }},
    {"history", true,
     [](DevicePlan& s, std::string_view v) { return setNumber(s.historyDays, v, 0u, kMaxHistoryDays); }},
    {"seed", true,
     [](DevicePlan& s, std::string_view v) {
         uint64_t seed = 0;
         std::string why = setNumber<uint64_t>(seed, v, 0, UINT64_MAX);
         if (why.empty()) s.seed = seed;
         return why;
     }},
    {"silent", false,
     [](DevicePlan& s, std::string_view) {
         s.announced = false;
         return std::string();
     }},
    {"wifi", true,
     [](DevicePlan& s, std::string_view v) -> std::string {
         if (s.hardwareRevision != kWifiModelRevision) return "applies to Zelmor-V (V) only";
         if (v != "one" && v != "list") return "needs one (one network) or list (a list of known networks)";
         s.wifi = v == "one" ? WifiKind::OneNetwork : WifiKind::NetworkList;
         return {};
     }},
    {"reading", true, [](DevicePlan& s, std::string_view v) { return setHeldReading(s.heldReading, v); }},
    {"drop", true, [](DevicePlan& s, std::string_view v) { return setFraction(s.faults.dropFraction, v); }},
    {"corrupt", true, [](DevicePlan& s, std::string_view v) { return setFraction(s.faults.corruptFraction, v); }},
    {"delay", true, [](DevicePlan& s, std::string_view v) { return setFraction(s.faults.delayFraction, v); }},
    {"delay-ms", true,
     [](DevicePlan& s, std::string_view v) {
         return setNumber<uint32_t>(s.faults.answerDelayMs, v, 0, kMaxAnswerDelayMs);
     }},
    {"close-after", true,
     [](DevicePlan& s, std::string_view v) { return setNumber<uint64_t>(s.faults.closeAfterBytes, v, 0, UINT64_MAX); }},
    {"bandwidth", true,
     [](DevicePlan& s, std::string_view v) { return setNumber<uint64_t>(s.faults.bytesPerSecond, v, 0, UINT64_MAX); }},
    {"fail", true, [](DevicePlan& s, std::string_view v) { return setCommandFailure(s.faults.failCommand, v); }},
    {"stall", false,
     [](DevicePlan& s, std::string_view) {
         s.faults.stalled = true;
         return std::string();
     }},
};

std::string knownKeys() {
    std::string list;
    for (Key const& key : kKeys)
        list += fmt::format("{}{}{}", list.empty() ? "" : ", ", key.name, key.takesValue ? "=" : "");
    return list;
}

}  // namespace

DevicePlanResult parseDevicePlan(std::string_view text, DevicePlan const& defaults) {
    auto const failure = [text](std::string why) {
        return DevicePlanResult{std::nullopt, fmt::format("\"{}\": {}", text, why)};
    };
    DevicePlan plan = defaults;
    size_t const firstComma = std::min(text.find(','), text.size());
    std::string_view const model = text.substr(0, firstComma);
    if (equalsIgnoringCase(model, "K"))
        plan.hardwareRevision = kLanModelRevision;
    else if (equalsIgnoringCase(model, "V"))
        plan.hardwareRevision = kWifiModelRevision;
    else
        return failure("the model must be K (Zelmor-K, LAN) or V (Zelmor-V, WiFi)");

    bool delayShareGiven = false;
    for (size_t at = firstComma; at < text.size();) {
        size_t const end = std::min(text.find(',', at + 1), text.size());
        std::string_view const item = text.substr(at + 1, end - at - 1);
        at = end;
        size_t const equals = item.find('=');
        std::string_view const name = item.substr(0, equals);
        auto const key =
            std::find_if(std::begin(kKeys), std::end(kKeys), [name](Key const& k) { return k.name == name; });
        if (key == std::end(kKeys)) return failure(fmt::format("unknown key \"{}\" (known: {})", name, knownKeys()));
        if (key->takesValue && equals == std::string_view::npos)
            return failure(fmt::format("{} needs a value ({}=...)", name, name));
        if (!key->takesValue && equals != std::string_view::npos)
            return failure(fmt::format("{} takes no value", name));
        if (std::string why = key->set(plan, equals == std::string_view::npos ? "" : item.substr(equals + 1));
            !why.empty())
            return failure(fmt::format("{} {}", name, why));
        delayShareGiven = delayShareGiven || name == "delay";
    }
    applyDelayDefault(plan.faults, delayShareGiven);
    return {plan, {}};
}

std::optional<CommandFailure> parseCommandFailure(std::string_view text) {
    size_t const at = std::min(text.find('@'), text.size());
    std::string_view code = text.substr(0, at);
    if (code.starts_with("0x") || code.starts_with("0X")) code.remove_prefix(2);
    std::optional<uint16_t> const number = parseNumber<uint16_t>(code, 16);
    if (!number) return std::nullopt;
    CommandFailure failure{*number, 0};
    if (at == text.size()) return failure;
    std::optional<uint32_t> const nth = parseNumber<uint32_t>(text.substr(at + 1));
    if (!nth || *nth == 0) return std::nullopt;
    failure.nth = *nth;
    return failure;
}

void applyDelayDefault(FaultSettings& faults, bool delayShareGiven) {
    if (delayShareGiven && faults.answerDelayMs == 0) faults.answerDelayMs = kDefaultAnswerDelayMs;
}

std::vector<DevicePlan> defaultFleet(DevicePlan const& defaults) {
    DevicePlan lan = defaults;
    lan.hardwareRevision = kLanModelRevision;
    DevicePlan wifi = defaults;
    wifi.hardwareRevision = kWifiModelRevision;
    DevicePlan locked = wifi;
    locked.userPassword = kLockedDevicePassword;
    return {lan, wifi, locked};
}

std::vector<DevicePlan> announceOnlyDevices(size_t count, DevicePlan const& defaults) {
    std::vector<DevicePlan> devices(count, defaults);
    for (size_t i = 0; i < count; ++i) {
        devices[i].hardwareRevision = i % 2 == 0 ? kLanModelRevision : kWifiModelRevision;
        // Nobody can connect to read it.
        devices[i].historyDays = 0;
        devices[i].served = false;
    }
    return devices;
}

std::string completeFleet(std::vector<DevicePlan>& devices, uint32_t base, uint64_t seed) {
    size_t const nameCount = std::size(kNames);
    for (size_t i = 0; i < devices.size(); ++i) {
        DevicePlan& d = devices[i];
        uint64_t const address = uint64_t{base} + i;
        // Neither the network's own address nor its broadcast address can be a device's.
        if (address > UINT32_MAX || !isLoopback(static_cast<uint32_t>(address)) || (address & 0xFFFFFF) == 0 ||
            (address & 0xFFFFFF) == 0xFFFFFF)
            return fmt::format("device {} has no loopback host address left after --base-address {}", i + 1,
                               addressText(base));
        d.address = static_cast<uint32_t>(address);
        if (d.name.empty())
            d.name =
                i < nameCount ? std::string(kNames[i]) : fmt::format("{} {}", kNames[i % nameCount], i / nameCount + 1);
        if (d.serial == 0) d.serial = kFirstSerial + i;
        if (!d.seed) d.seed = seed + i;
    }
    return {};
}

SimulatedDeviceConfig deviceConfig(DevicePlan const& plan) {
    SimulatedDeviceConfig config;
    config.hardwareRevision = plan.hardwareRevision;
    config.serial = plan.serial;
    config.name = plan.name;
    config.userPassword = plan.userPassword;
    config.masterPassword = plan.masterPassword;
    config.logIntervalSeconds = plan.logIntervalSeconds;
    config.historyDays = plan.historyDays;
    config.seed = plan.seed.value_or(1);
    config.wifiKind = plan.wifi;
    config.heldReading = plan.heldReading;
    auto const byte = [&plan](int shift) { return static_cast<uint8_t>(plan.address >> shift); };
    config.ipAddress = {byte(24), byte(16), byte(8), byte(0)};
    config.bluetoothAddress = {0xC2, 0x5A, 0x4C, byte(16), byte(8), byte(0)};
    return config;
}

}  // namespace sim
