#include "response_code.h"

#include <algorithm>
#include <iterator>

namespace {

struct MessageRow {
    Zelmor::ResponseCode code;
    char const* message;
};

constexpr MessageRow kMessages[] = {
    {Zelmor::ResponseCode::InvalidRequest, "Invalid request."},
    {Zelmor::ResponseCode::InvalidParameter, "Invalid parameter."},
    {Zelmor::ResponseCode::RequestFailed, "Request failed."},
    {Zelmor::ResponseCode::LockedByUserPassword, "Feature is locked by user password."},
    {Zelmor::ResponseCode::LockedByMasterPassword, "Feature is locked by master password."},
    {Zelmor::ResponseCode::RequestTimeout, "Request timeout."},
    {Zelmor::ResponseCode::InvalidDeviceResponse, "Invalid device response."},
};

}  // namespace

char const* responseCodeMessage(Zelmor::ResponseCode code) {
    auto const row =
        std::find_if(std::begin(kMessages), std::end(kMessages), [&](MessageRow const& r) { return r.code == code; });
    return row == std::end(kMessages) ? nullptr : row->message;
}
