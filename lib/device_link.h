#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "zelmor.h"

// A device link hands a paired device to another installation: it carries the
// name, serial, hardware revision and the access key of the hub channel, e.g.
// https://zelmor.link?n=426f6174&s=0000000000001a2b&h=41&c=<24 chars>&k=<44 chars>

/// The host written into new links. It is only text in the URL: nothing ever
/// contacts it, and links naming another host are read just the same.
inline constexpr std::string_view kDeviceLinkHost = "zelmor.link";

/// Longest name a link carries, in bytes; makeDeviceLink cuts longer names.
inline constexpr size_t kDeviceLinkMaxNameBytes = 32;

/// Either the identifier a link describes, or a sentence telling the user what
/// is wrong with the link.
struct DeviceLinkResult {
    std::optional<Zelmor::DeviceIdentifier> identifier;
    std::string error;
};

/// The identifier that pairing with a device gives: its name, serial and
/// revision from its information record, and its hub channel's access key.
Zelmor::DeviceIdentifier pairedDevice(Zelmor::DeviceInfo const& info, Zelmor::WifiAccessKey const& key);

/// The link of a device: name (first 32 bytes, hex), serial (16 hex digits),
/// hardware revision (2 hex digits), channel identifier and key (URL-safe
/// base64, padded). The local addresses are not part of it.
std::string makeDeviceLink(Zelmor::DeviceIdentifier const& id);

/// Reads a link as a user pastes it. Surrounding whitespace is ignored, the
/// scheme must be https (any case), any host is accepted, followed by "?" or
/// "/?". The five fields may come in any order, each exactly once; hex digits
/// may be upper case, and the base64 fields may use "+" and "/", lack their
/// padding, or carry the escapes %2B, %2F and %3D. Never throws; any text is
/// safe to pass.
DeviceLinkResult parseDeviceLink(std::string_view text);
