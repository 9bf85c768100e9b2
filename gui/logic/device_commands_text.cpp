#include "device_commands_text.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "hardware_revision.h"

namespace {

constexpr PasswordTexts kUserTexts{"Set User Password", "Enter new user password", "Confirm user password",
                                   "Device user password reset successfully.\n"};
constexpr PasswordTexts kMasterTexts{"Set Master Password", "Enter new master password", "Confirm master password",
                                     "Device master password reset successfully.\n"};

}  // namespace

PasswordTexts const& passwordTexts(PasswordLock lock) { return lock == PasswordLock::User ? kUserTexts : kMasterTexts; }

char const* currentPasswordPrompt(Zelmor::ResponseCode code) {
    if (code == Zelmor::ResponseCode::LockedByUserPassword) return "Enter user password";
    if (code == Zelmor::ResponseCode::LockedByMasterPassword) return "Enter master password";
    return nullptr;
}

size_t deviceNameMaxLength(uint8_t hardwareRevision) { return isNetworkModel(hardwareRevision) ? 32 : 8; }

std::string clockQuestion(std::time_t now) {
    std::tm local{};
    localtime_r(&now, &local);
    return fmt::format("The device clock will be set to:\n{:%I:%M %p} - {:%b %d, %Y}", local, local);
}

std::string pairingInstructions(std::string const& name) {
    return fmt::format(
        "Device paired successfully.\n\n\"{}\" is now listed under \"Remote Devices\" in the main window. "
        "Open it from there to reach the device through the internet relay, wherever you are.",
        name);
}
