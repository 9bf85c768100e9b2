#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "config_dialog_layout.h"
#include "zelmor_config.h"

// The rules of the configuration dialog: which fields a model shows, which
// are enabled, how numbers are written and read, and what Generator Control
// does to the other disconnect features.

/// Whether a device of hardware revision `revision` has a use for the field:
/// the second-voltage settings need a second voltage input (not the 0x3_
/// family), the Ethernet LED a LAN model, the access point, WiFi power saving
/// and the WiFi watchdog a WiFi model, "Use Without Internet" a LAN or WiFi
/// model. Every model has a relay.
bool configFieldForModel(ConfigKey key, uint8_t revision);

/// Whether the dialog shows the field: the model has a use for it, and it is
/// not one of the disconnect enables that Generator Control takes over while
/// `config` has Generator Control on.
bool configFieldShown(ConfigKey key, uint8_t revision, ZelmorConfig const& config);

/// Whether the page has a field for the model; a page without one is left out.
bool configPageShown(ConfigPage const& page, uint8_t revision);

/// Whether the field takes input: a field of a section is enabled only while
/// the section's enable box (and that of the group it sits in, for the
/// thresholds behind "Manual Full Charge Detection", the SoC boxes and the
/// generator's on and off conditions) is checked. Fields outside a section
/// are always enabled.
bool configFieldEnabled(ConfigKey key, ZelmorConfig const& config);

/// The enables of the disconnect features that Generator Control replaces:
/// LVD, HVD, OCD, LTD and HTD.
std::span<ConfigKey const> generatorReplacedEnables();

/// With Generator Control on, clears the enables it replaces.
void applyGeneratorControl(ZelmorConfig& config);

/// Decimals a number field is written with: 1 for the fields stored in
/// steps of 0.1 or coarser (whole amperes, capacities, temperatures, counts,
/// filters, percentages), 3 for the finer ones (volts, the full-charge
/// current), so that the text always reads back as the stored value.
int configDecimals(ConfigKey key);

/// The field's value as its text field shows it ("12.500", "200.0").
std::string configNumberText(ZelmorConfig const& config, ConfigKey key);

/// Sets a number field from the text typed into it: a decimal number with
/// '.' or ',' as separator and blanks around, rounded to the field's step.
/// Gives the message to show instead when the text is no number or outside
/// the field's range, naming the field by its label and page, and then
/// leaves the configuration as it was.
std::optional<std::string> setConfigNumber(ZelmorConfig& config, ConfigKey key, std::string_view text,
                                           std::string_view label, std::string_view page);
