// The device's WiFi: wifi networks, the known networks of a WiFi model that
// keeps a list of them.
#include <fmt/core.h>

#include "command_context.h"
#include "device_session.h"

namespace {

Json signalJson(int8_t signal) { return signal == Zelmor::WifiNetwork::kNeverSeen ? Json() : Json(signal); }

std::string signalText(int8_t signal) {
    return signal == Zelmor::WifiNetwork::kNeverSeen ? "never seen" : fmt::format("{} dBm", signal);
}

void networks(CommandContext& context) {
    DeviceSession session(context.target);
    auto const list = session.get(&Zelmor::requestGetWifiNetworks);
    for (size_t i = 0; i < list.size(); ++i) {
        Zelmor::WifiNetwork const& n = list[i];
        Json json{{"index", i},
                  {"ssid", n.ssid},
                  {"security", n.security},
                  {"in_use", n.inUse},
                  {"failed", n.failed},
                  {"metered", n.metered},
                  {"last_signal", signalJson(n.lastSignal)}};
        std::string flags;
        for (auto const& [set, word] : {std::pair{n.inUse, "in use"}, {n.failed, "failed"}, {n.metered, "metered"}})
            if (set) flags += fmt::format("  {}", word);
        context.output.result(json, fmt::format("{:2}  {:<32}  security {}  {}{}", i, n.ssid, n.security,
                                                signalText(n.lastSignal), flags));
    }
    if (list.empty() && !context.output.json()) context.output.line("No known networks.");
}

}  // namespace

void addWifiCommands(CLI::App& app, CommandContext& context) {
    CLI::App* wifi = addGroup(app, "wifi", "The WiFi of a Zelmor-V");
    addCommand(*wifi, "networks", "List the known networks (models that keep a list of them)", context,
               [&context] { networks(context); });
}
