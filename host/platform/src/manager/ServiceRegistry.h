#pragma once

#include <string>
#include <string_view>

#include <android/binder_ibinder.h>

#include "objects/Object.h"
#include "transport/RuntimeFolder.h"

namespace binder {

// Calls of the service manager. Arguments and answers, in order:
inline constexpr transaction_code_t kAddService = 1;    // name, binder -> exception
inline constexpr transaction_code_t kCheckService = 2;  // name -> binder or null, its serial
inline constexpr transaction_code_t kListServices = 3;  // -> names

/** The service manager's class, for its host and for its clients. */
const AIBinder_Class* serviceManagerClass();

/** An empty registry. It rewrites the folder's generation file whenever its names change. */
StrongBinder makeServiceRegistry(const RuntimeFolder& folder);

// Entries of the runtime folder.
inline constexpr char kManagerEntry[] = "servicemanager";             // link to the host's endpoint
inline constexpr char kManagerLock[] = "servicemanager.lock";         // held by the host
inline constexpr char kGenerationEntry[] = "servicemanager.changes";  // rewritten at each change

/** True for 1 to 127 letters, digits and `_`, `-`, `.`, `/`. */
bool isServiceName(std::string_view name);

/** Tells those who wait for a name to look again. */
void announceChange(const RuntimeFolder& folder);

}  // namespace binder
