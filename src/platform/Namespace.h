// System-wide names of the library's shared objects.
//
// Every object that processes share by name (shared-memory tables, named
// events, the IPC section, the window table) lives in one namespace, taken
// from the environment variable KIV_NAMESPACE (default "u<uid>"). Child
// processes inherit it, so a set of cooperating processes shares one
// namespace and tests isolate themselves by setting their own.
//
// Format, stable because test cleanup relies on it:
//   "/kiv.<namespace>.<kind>.<encoded name>"
// a valid name for shm_open and sem_open (one leading slash, at most 250
// bytes). The namespace keeps [A-Za-z0-9_-] of KIV_NAMESPACE, at most 48
// characters. The name is UTF-8 with every byte outside [A-Za-z0-9_-]
// written as %XX; an encoded name that would be too long is cut and ends in a
// hash of the whole name, so distinct names stay distinct.
#pragma once

#include <string>
#include <string_view>

namespace kiv::platform {

/// The namespace token of this process, read from the environment each call.
std::string NamespaceToken();

/// "/kiv.<namespace>." : the prefix shared by every object of the namespace.
std::string NamespacePrefix();

/// The system-wide name of the object `name` of the given kind (a short
/// word of [a-z0-9], such as "event" or "windows").
std::string SystemObjectName(std::string_view kind, std::wstring_view name);

}  // namespace kiv::platform
