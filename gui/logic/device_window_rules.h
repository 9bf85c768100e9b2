#pragma once

#include <string>

#include "zelmor.h"
#include "zelmor_scanner.h"

// What the device window decides on its own, apart from any display.

/// How the device window reaches a device.
enum class LinkChoice {
    Bluetooth,  // connectBle with the identifier's bluetoothAddress
    Lan,        // connectLan with the identifier's ipAddress
    Hub,        // connectHub with hubAccessKey(identifier)
};

/// Bluetooth LE models over Bluetooth; network models directly when their
/// address on the LAN is known, else through the hub.
LinkChoice chooseLink(Zelmor::DeviceIdentifier const& id);

/// The key of the device's hub channel: its channel identifier and key.
Zelmor::WifiAccessKey hubAccessKey(Zelmor::DeviceIdentifier const& id);

/// How often the live readings are requested: every second on a direct link,
/// every two seconds through the hub, which carries every user's traffic.
unsigned monitorPollMs(bool directConnection);

/// What the window does when its link ends: close silently, or first tell the
/// user why in a message box captioned kLinkEndCaption.
struct LinkEndOutcome {
    bool showMessage;
    char const* message;  // nullptr when showMessage is false
};

inline constexpr char const* kLinkEndCaption = "Info";

/// A link the window closed itself ends silently; a connect that never
/// succeeded and a link lost in any other way are told to the user.
LinkEndOutcome linkEndOutcome(Zelmor::DisconnectReason reason);

/// The identifier of a sighted device: name, serial, hardware revision and the
/// address it was seen at; it has no hub key.
Zelmor::DeviceIdentifier identifierFromAdvertisement(ZelmorScanner::Advertisement const& advertisement);

/// A WiFi model in access-point mode, reached at 192.168.100.1 on the network
/// it opens.
Zelmor::DeviceIdentifier wifiDirectIdentifier();

/// "Zelmor Manager: <name>".
std::string deviceWindowTitle(std::string const& name);
