#ifndef HOST_JSON_H
#define HOST_JSON_H

#include <nlohmann/json.hpp>

#include "host/console.h"

namespace emshost {

using Json = nlohmann::ordered_json;

/// Prints a line. Bytes that are not UTF-8 are replaced.
inline void PrintJson(const Json& row)
{
    Console::Instance().Print(row.dump(-1, ' ', false, Json::error_handler_t::replace));
}

} // namespace emshost

#endif
