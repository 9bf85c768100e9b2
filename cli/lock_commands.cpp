// Passwords: unlock, lock (set a password), unlock-clear (remove one).
#include <memory>

#include <fmt/core.h>

#include "auth_key.h"
#include "command_context.h"
#include "command_error.h"
#include "device_session.h"
#include "hidden_prompt.h"
#include "secret_source.h"

namespace {

struct LockOptions {
    std::string kind;
    std::string newPassword;
    std::string newPasswordFile;
};

char const* kindName(std::string const& kind) { return kind == "user" ? "User" : "Master"; }

void unlock(CommandContext& context) {
    TargetOptions target = context.target;
    target.password = givenSecret(target.password, target.passwordFile, "--password-file", kPasswordVariable);
    if (target.password.empty()) {
        if (!terminalInput())
            throw usageError("unlock needs the password: --password-file FILE, $ZELMOR_PASSWORD or a terminal");
        target.password = promptHidden("Password: ");
    }
    // The session unlocks with the password before any command.
    DeviceSession session(target);
    context.output.result(Json{{"ok", true}}, "Unlocked.");
}

void lock(CommandContext& context, LockOptions const& options) {
    std::string newPassword =
        givenSecret(options.newPassword, options.newPasswordFile, "--new-password-file", kNewPasswordVariable);
    if (newPassword.empty() && !terminalInput())
        throw usageError("lock needs the new password: --new-password-file FILE, $ZELMOR_NEW_PASSWORD or a terminal");
    DeviceSession session(context.target);
    // Asked after the current password, which the session may have asked for.
    if (newPassword.empty()) newPassword = promptNewPassword();
    Zelmor::AuthKey const key = makeAuthKey(newPassword);
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
    addCommand(app, "unlock",
               "Check the password given with --password-file, $ZELMOR_PASSWORD or --password, or typed at a "
               "prompt (exit status 0 when it unlocks)",
               context, [&context] { unlock(context); });

    auto lockOptions = std::make_shared<LockOptions>();
    CLI::App* lockCommand = addCommand(app, "lock", "Set the user or master password", context,
                                       [&context, lockOptions] { lock(context, *lockOptions); });
    lockCommand->add_option("KIND", lockOptions->kind, "user or master")
        ->required()
        ->check(CLI::IsMember({"user", "master"}));
    CLI::Option* newPassword = lockCommand->add_option(
        "--new-password", lockOptions->newPassword,
        "The password to set. Other users of this machine can read it in the process list: prefer "
        "--new-password-file or $ZELMOR_NEW_PASSWORD");
    lockCommand
        ->add_option("--new-password-file", lockOptions->newPasswordFile,
                     "Set the password on the first line of this file. Without --new-password or "
                     "--new-password-file: $ZELMOR_NEW_PASSWORD, then a hidden prompt (twice) when standard input is "
                     "a terminal")
        ->excludes(newPassword);

    auto clearOptions = std::make_shared<LockOptions>();
    addCommand(app, "unlock-clear", "Remove the user or master password", context,
               [&context, clearOptions] { unlockClear(context, *clearOptions); })
        ->add_option("KIND", clearOptions->kind, "user or master")
        ->required()
        ->check(CLI::IsMember({"user", "master"}));
}
