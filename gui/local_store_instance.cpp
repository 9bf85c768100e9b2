#include "local_store_instance.h"

#include <filesystem>

#include <wx/stdpaths.h>

LocalStore& localStore() {
    static LocalStore store(std::filesystem::path(wxStandardPaths::Get().GetUserConfigDir().utf8_string()) / ".zlmr");
    return store;
}
