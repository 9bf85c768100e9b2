// Passwords: unlock, lock (set a password), unlock-clear (remove one).
#include <memory>

#include <fmt/core.h>

#include "auth_key.h"
#include "command_context.h"
#include "command_error.h"
#include "device_session.h"

namespace {

struct LockOptions {
    std::string kind;
    std::string newPassword;
};

char const* kindName(std::string const& kind) { return kind == "user" ? "User" : "Master"; }

void unlock(CommandContext& context) {
    if (context.target.password.empty()) throw usageError("unlock needs the password: --password TEXT");
    // The session unlocks with --password before any command.
    DeviceSession session(context.target);
    context.output.result(Json{{"ok", true}}, "Unlocked.");
}

void lock(CommandContext& context, LockOptions const& options) {
    if (options.newPassword.empty()) throw usageError("The new password must not be empty");
    Zelmor::AuthKey const key = makeAuthKey(options.newPassword);
    DeviceSession session(context.target);
    session.run([&](Zelmor::DoneCallback done) {
        if (options.kind == "user")
            session.device().requestSetUserPasswordLock(key, done);
        else
            session.device().requestSetMasterPasswordLock(key, done);
    });
    context.output.result(Json{{"ok", true}, {"password", options.kind}},
                          fmt::format("{} password set.", kindName(options.kind)));
}

void unlockClear(CommandContext& context, LockOptions const& options) {
    DeviceSession session(context.target);
    session.run([&](Zelmor::DoneCallback done) {
        if (options.kind == "user")
            session.device().requestClearUserPasswordLock(done);
        else
            session.device().requestClearMasterPasswordLock(done);
    });
    context.output.result(Json{{"ok", true}, {"password", options.kind}},
                          fmt::format("{} password removed.", kindName(options.kind)));
}

}  // namespace

void addLockCommands(CLI::App& app, CommandContext& context) {
    addCommand(app, "unlock", "Check the password given with --password (exit status 0 when it unlocks)", context,
               [&context] { unlock(context); });

    auto lockOptions = std::make_shared<LockOptions>();
    CLI::App* lockCommand = addCommand(app, "lock", "Set the user or master password", context,
                                       [&context, lockOptions] { lock(context, *lockOptions); });
    lockCommand->add_option("KIND", lockOptions->kind, "user or master")
        ->required()
        ->check(CLI::IsMember({"user", "master"}));
    lockCommand->add_option("--new-password", lockOptions->newPassword, "The password to set")->required();

    auto clearOptions = std::make_shared<LockOptions>();
    addCommand(app, "unlock-clear", "Remove the user or master password", context,
               [&context, clearOptions] { unlockClear(context, *clearOptions); })
        ->add_option("KIND", clearOptions->kind, "user or master")
        ->required()
        ->check(CLI::IsMember({"user", "master"}));
}
