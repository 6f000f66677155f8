// The registry store: every key and value of the four roots, kept in one
// database file that all processes of the user share.
//
// The functions have the shape of the platform registry calls the device
// makes (create, open, close, query, set, delete, enumerate) and return the
// same error codes: 0 success, 2 no such key or value, 5 a key that still has
// sub-keys, 6 a bad handle, 87 a bad argument, 234 a buffer too small (the
// size needed is stored), 259 no more items, 1018 a key deleted through
// another handle. A store that cannot be opened gives 1016 on every call, a
// damaged one (or a file that is not a registry) 1015; the file is never
// deleted or rewritten. Contention with other threads and processes is waited
// out here and never reaches the caller.
//
// The file is the one KIV_REGISTRY names when a root is used; a key handle
// keeps the file it was opened in. Handles are process-wide: any thread may
// use a handle another thread opened.
//
// Data crosses this interface in the caller's wchar_t form. String values
// (REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ) are counted in bytes of wchar_t and
// stored as UTF-16LE; every other type is stored as the bytes given.
#pragma once

#include <kiv/platform/Win32Types.h>

#include <cstdint>
#include <string>

namespace kiv::platform {

class RegistryStore {
public:
    RegistryStore() = delete;

    /// Creates `subKey` (and the keys above it) below `parent`, or opens it
    /// when it exists. `disposition`, when not null, receives
    /// REG_CREATED_NEW_KEY or REG_OPENED_EXISTING_KEY on success and is left
    /// alone on failure. A null or empty `subKey` opens `parent` again.
    static unsigned int CreateKey(HKEY parent, const wchar_t* subKey, const wchar_t* className,
                                  HKEY* result, unsigned int* disposition);
    /// Opens an existing `subKey` below `parent`.
    static unsigned int OpenKey(HKEY parent, const wchar_t* subKey, HKEY* result);
    /// Forgets a handle; closing a predefined root does nothing and succeeds.
    static unsigned int CloseKey(HKEY key);

    /// Reads value `name` (null or empty: the key's default value). With
    /// `data` null only the type and size are returned.
    static unsigned int QueryValue(HKEY key, const wchar_t* name, unsigned int* type, void* data,
                                   unsigned int* size);
    /// Writes value `name` with `size` bytes of `data`.
    static unsigned int SetValue(HKEY key, const wchar_t* name, unsigned int type, const void* data,
                                 unsigned int size);
    /// As SetValue, but a value that already has this type and data is left
    /// alone: nothing is rewritten and its change stamp stays. For writers
    /// that repeat mostly unchanged values (the GPS parser).
    static unsigned int UpdateValue(HKEY key, const wchar_t* name, unsigned int type,
                                    const void* data, unsigned int size);
    /// Deletes the key `subKey` below `key`; it must have no sub-keys.
    static unsigned int DeleteKey(HKEY key, const wchar_t* subKey);
    /// Deletes value `name`.
    static unsigned int DeleteValue(HKEY key, const wchar_t* name);

    /// Names the sub-key at `index` (ordered by upper-cased name). On entry
    /// `nameChars` is the capacity of `name` in characters, terminator
    /// included; on success the length written, terminator excluded; when it
    /// is too small (234) the capacity needed.
    static unsigned int EnumKey(HKEY key, unsigned int index, wchar_t* name,
                                unsigned int* nameChars);
    /// Names the value at `index` and, as QueryValue, returns its type and
    /// data. `data`, `size` and `type` may be null.
    static unsigned int EnumValue(HKEY key, unsigned int index, wchar_t* name,
                                  unsigned int* nameChars, unsigned int* type, void* data,
                                  unsigned int* size);

    /// A number that changes with every committed write or deletion of value
    /// `name` of `key` (and every key made or deleted), by any process that
    /// uses this store: unchanged stamps mean unchanged values, without a
    /// read. Unrelated writes may change it too (slots are shared). False
    /// when no stamps can be kept beside the file; the value must be read.
    static bool ChangeStamp(HKEY key, const wchar_t* name, std::uint32_t& stamp);

    /// The database file the roots resolve to now: KIV_REGISTRY, else
    /// "kiv/registry.db" in the user's state directory.
    static std::string Path();
};

// A scope in which the calling thread's writes to the store commit as one
// transaction: other threads and processes see all of them or none. Writes
// through any handle of the same file take part, whichever key they use.
// The write lock is taken at the first write and held until the outermost
// scope of the thread ends, so keep a batch short and never wait for another
// thread inside one. Scopes nest; only the outermost commits. A batch
// belongs to the thread that made it.
//
// The GPS daemon writes the values of one sentence in one batch, so clients
// never read half of a fix.
class RegistryBatch {
public:
    RegistryBatch();
    /// Commits, when this is the outermost scope and Commit was not called.
    ~RegistryBatch();
    RegistryBatch(const RegistryBatch&) = delete;
    RegistryBatch& operator=(const RegistryBatch&) = delete;

    /// Ends the scope now: the outermost scope commits and returns the
    /// result (0, or the store's error; a failed commit rolls back). An inner
    /// scope returns 0. Further calls return 0.
    unsigned int Commit();

private:
    std::string m_path;
    bool m_open;
};

// A scope in which the calling thread's reads of the store see one state:
// writes that other threads and processes commit meanwhile become visible
// only after it ends. A reader of several values that belong together (a
// GPS fix) takes one, so it never mixes two fixes. No writes inside; inside
// a batch it does nothing. Scopes nest.
class RegistrySnapshot {
public:
    RegistrySnapshot();
    ~RegistrySnapshot();
    RegistrySnapshot(const RegistrySnapshot&) = delete;
    RegistrySnapshot& operator=(const RegistrySnapshot&) = delete;

private:
    std::string m_path;
    bool m_open;
};

}  // namespace kiv::platform
