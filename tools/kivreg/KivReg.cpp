// kivreg: the registry from a shell.
//
//   kivreg query  KEY [/v NAME | /ve] [/s]
//   kivreg add    KEY [/v NAME | /ve] [/t TYPE] [/d DATA] [/f]
//   kivreg delete KEY [/v NAME | /ve | /va] [/f]
//   kivreg export KEY FILE
//   kivreg import FILE
//
// KEY starts with a root: HKLM, HKCU, HKCR, HKU or their long names.
// Exit status: 0 done, 1 failed (missing key or value, refused), 2 bad
// arguments, 3 the registry store is damaged or cannot be opened.
#include <kiv/system/MRegistry.h>
#include <kiv/system/MRegistryKey.h>

#include <cstdio>
#include <cwctype>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "RegFile.h"
#include "foundation/Text.h"

using kiv::system::MRegistry;
using kiv::system::MRegistryKey;
using kivreg::Section;
using kivreg::Value;

namespace {

constexpr int kOk = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;
constexpr int kStoreBroken = 3;

constexpr const char* kUsageText =
    "usage:\n"
    "  kivreg query  KEY [/v NAME | /ve] [/s]\n"
    "  kivreg add    KEY [/v NAME | /ve] [/t TYPE] [/d DATA] [/f]\n"
    "  kivreg delete KEY [/v NAME | /ve | /va] [/f]\n"
    "  kivreg export KEY FILE\n"
    "  kivreg import FILE\n"
    "KEY: ROOT\\path, ROOT one of HKLM HKCU HKCR HKU (or HKEY_LOCAL_MACHINE ...).\n"
    "TYPE: REG_SZ (default), REG_EXPAND_SZ, REG_MULTI_SZ (strings split by \\0),\n"
    "      REG_DWORD, REG_QWORD (decimal or 0x hex), REG_BINARY, REG_NONE (hex digits).\n";

std::string Narrow(const std::wstring& s) {
    return kiv::text::ToUtf8(s);
}

struct Root {
    const wchar_t* shortName;
    const wchar_t* longName;
    HKEY key;
};

const Root kRoots[] = {
    {L"HKCR", L"HKEY_CLASSES_ROOT", HKEY_CLASSES_ROOT},
    {L"HKCU", L"HKEY_CURRENT_USER", HKEY_CURRENT_USER},
    {L"HKLM", L"HKEY_LOCAL_MACHINE", HKEY_LOCAL_MACHINE},
    {L"HKU", L"HKEY_USERS", HKEY_USERS},
};

std::wstring Upper(std::wstring s) {
    for (wchar_t& c : s) {
        c = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c)));
    }
    return s;
}

// A key path taken apart: its root, the path below it and the full name
// with the root spelled out.
struct KeyPath {
    HKEY root = nullptr;
    std::wstring sub;
    std::wstring full;
};

bool ParseKey(const std::wstring& text, KeyPath& key) {
    const std::size_t slash = text.find(L'\\');
    const std::wstring rootName = Upper(text.substr(0, slash));
    for (const Root& r : kRoots) {
        if (rootName == r.shortName || rootName == r.longName) {
            key.root = r.key;
            key.sub = slash == std::wstring::npos ? L"" : text.substr(slash + 1);
            while (!key.sub.empty() && key.sub.back() == L'\\') {
                key.sub.pop_back();
            }
            key.full = std::wstring(r.longName) + (key.sub.empty() ? L"" : L"\\" + key.sub);
            return true;
        }
    }
    return false;
}

// Says what a registry error means; returns the exit status for it.
int Report(unsigned int rc, const std::wstring& what) {
    switch (rc) {
        case ERROR_FILE_NOT_FOUND:
            std::cerr << "kivreg: not found: " << Narrow(what) << "\n";
            return kFailed;
        case ERROR_ACCESS_DENIED:
            std::cerr << "kivreg: refused (the key has sub-keys?): " << Narrow(what) << "\n";
            return kFailed;
        case ERROR_INVALID_PARAMETER:
            std::cerr << "kivreg: invalid name (a key name has at most 255 characters): "
                      << Narrow(what) << "\n";
            return kFailed;
        case ERROR_REGISTRY_CORRUPT:
            std::cerr << "kivreg: the registry store is damaged or is not a registry (1015)\n";
            return kStoreBroken;
        case ERROR_REGISTRY_IO_FAILED:
            std::cerr << "kivreg: the registry store cannot be opened or read (1016)\n";
            return kStoreBroken;
        default:
            std::cerr << "kivreg: error " << rc << ": " << Narrow(what) << "\n";
            return kFailed;
    }
}

// The options after the key.
struct Options {
    bool hasValue = false;  // /v or /ve
    std::wstring value;
    bool allValues = false;  // /va
    bool recurse = false;    // /s
    bool force = false;      // /f
    bool hasType = false;
    std::wstring type;
    bool hasData = false;
    std::wstring data;
    std::vector<std::wstring> positional;
};

bool IsSwitch(const std::wstring& arg, const wchar_t* name) {
    return (arg.size() > 1 && (arg[0] == L'/' || arg[0] == L'-')) &&
           Upper(arg.substr(1)) == Upper(name);
}

// "/x" or "-xy": an option, not a file name such as "/tmp/a.reg".
bool LooksLikeSwitch(const std::wstring& arg) {
    if (arg.size() < 2 || arg.size() > 3 || (arg[0] != L'/' && arg[0] != L'-')) {
        return false;
    }
    for (std::size_t i = 1; i < arg.size(); ++i) {
        if (std::iswalpha(static_cast<wint_t>(arg[i])) == 0) {
            return false;
        }
    }
    return true;
}

bool ParseOptions(const std::vector<std::wstring>& args, std::size_t from, Options& o) {
    for (std::size_t i = from; i < args.size(); ++i) {
        const std::wstring& a = args[i];
        const bool hasNext = i + 1 < args.size();
        if (IsSwitch(a, L"v") && hasNext && !o.hasValue) {
            o.hasValue = true;
            o.value = args[++i];
        } else if (IsSwitch(a, L"ve") && !o.hasValue) {
            o.hasValue = true;
        } else if (IsSwitch(a, L"va")) {
            o.allValues = true;
        } else if (IsSwitch(a, L"s")) {
            o.recurse = true;
        } else if (IsSwitch(a, L"f")) {
            o.force = true;
        } else if (IsSwitch(a, L"t") && hasNext && !o.hasType) {
            o.hasType = true;
            o.type = args[++i];
        } else if (IsSwitch(a, L"d") && hasNext && !o.hasData) {
            o.hasData = true;
            o.data = args[++i];
        } else if (LooksLikeSwitch(a)) {
            std::cerr << "kivreg: unknown or repeated option " << Narrow(a) << "\n";
            return false;
        } else {
            o.positional.push_back(a);
        }
    }
    return true;
}

// Every value of an open key, in order.
unsigned int ReadValues(MRegistryKey& key, std::vector<Value>& values) {
    for (unsigned int i = 0;; ++i) {
        wchar_t name[16384];
        unsigned int chars = 16384;
        Value v;
        unsigned int size = 0;
        unsigned int rc = key.EnumValue(i, name, &chars, &v.type, nullptr, &size);
        if (rc == ERROR_NO_MORE_ITEMS) {
            return ERROR_SUCCESS;
        }
        if (rc != ERROR_SUCCESS) {
            return rc;
        }
        v.name.assign(name, chars);
        v.data.resize(size);
        chars = 16384;
        rc = key.EnumValue(i, name, &chars, &v.type, v.data.data(), &size);
        if (rc != ERROR_SUCCESS) {
            return rc;
        }
        v.data.resize(size);
        values.push_back(std::move(v));
    }
}

unsigned int ReadSubKeys(MRegistryKey& key, std::vector<std::wstring>& names) {
    for (unsigned int i = 0;; ++i) {
        wchar_t name[256];
        unsigned int chars = 256;
        const unsigned int rc = key.EnumKey(i, name, &chars);
        if (rc == ERROR_NO_MORE_ITEMS) {
            return ERROR_SUCCESS;
        }
        if (rc != ERROR_SUCCESS) {
            return rc;
        }
        names.emplace_back(name, chars);
    }
}

void PrintValue(const Value& v) {
    std::cout << "    " << (v.name.empty() ? std::string("(Default)") : Narrow(v.name)) << "    "
              << Narrow(kivreg::TypeName(v.type)) << "    "
              << Narrow(kivreg::ShowData(v.type, v.data)) << "\n";
}

// Prints a key and, with `recurse`, everything below it.
int QueryTree(HKEY parent, const std::wstring& sub, const std::wstring& full, bool recurse) {
    MRegistryKey key;
    if (const unsigned int rc = key.Open(parent, sub.c_str()); rc != ERROR_SUCCESS) {
        return Report(rc, full);
    }
    std::vector<Value> values;
    std::vector<std::wstring> subKeys;
    unsigned int rc = ReadValues(key, values);
    if (rc == ERROR_SUCCESS) {
        rc = ReadSubKeys(key, subKeys);
    }
    if (rc != ERROR_SUCCESS) {
        return Report(rc, full);
    }
    std::cout << "\n" << Narrow(full) << "\n";
    for (const Value& v : values) {
        PrintValue(v);
    }
    for (const std::wstring& name : subKeys) {
        if (recurse) {
            if (const int status = QueryTree(key.Handle(), name, full + L"\\" + name, true);
                status != kOk) {
                return status;
            }
        } else {
            std::cout << "\n" << Narrow(full + L"\\" + name);
        }
    }
    if (!recurse && !subKeys.empty()) {
        std::cout << "\n";
    }
    return kOk;
}

int Query(const KeyPath& path, const Options& o) {
    if (!o.hasValue) {
        const int status = QueryTree(path.root, path.sub, path.full, o.recurse);
        std::cout << "\n";
        return status;
    }
    MRegistryKey key;
    if (const unsigned int rc = key.Open(path.root, path.sub.c_str()); rc != ERROR_SUCCESS) {
        return Report(rc, path.full);
    }
    Value v;
    v.name = o.value;
    unsigned int size = 0;
    unsigned int rc = key.QueryValue(v.name.c_str(), &v.type, nullptr, &size);
    if (rc == ERROR_SUCCESS) {
        v.data.resize(size);
        rc = key.QueryValue(v.name.c_str(), &v.type, v.data.data(), &size);
        v.data.resize(size);
    }
    if (rc != ERROR_SUCCESS) {
        return Report(rc, path.full + L" value " + (v.name.empty() ? L"(Default)" : v.name));
    }
    std::cout << "\n" << Narrow(path.full) << "\n";
    PrintValue(v);
    std::cout << "\n";
    return kOk;
}

int Add(const KeyPath& path, const Options& o) {
    if (path.sub.empty()) {
        std::cerr << "kivreg: a key below the root is needed\n";
        return kUsage;
    }
    unsigned int type = REG_SZ;
    if (o.hasType && !kivreg::TypeFromName(o.type, type)) {
        std::cerr << "kivreg: unknown type " << Narrow(o.type) << "\n";
        return kUsage;
    }
    std::string data;
    if (o.hasValue && !kivreg::ParseCommandLineData(type, o.data, data)) {
        std::cerr << "kivreg: data \"" << Narrow(o.data) << "\" does not fit "
                  << Narrow(kivreg::TypeName(type)) << "\n";
        return kUsage;
    }
    MRegistryKey key;
    if (const unsigned int rc = key.Create(path.root, path.sub.c_str(), nullptr);
        rc != ERROR_SUCCESS) {
        return Report(rc, path.full);
    }
    if (!o.hasValue) {
        return kOk;
    }
    unsigned int size = 0;
    if (!o.force && key.QueryValue(o.value.c_str(), nullptr, nullptr, &size) == ERROR_SUCCESS) {
        std::cerr << "kivreg: value " << Narrow(o.value.empty() ? L"(Default)" : o.value)
                  << " exists; add /f to overwrite it\n";
        return kFailed;
    }
    const unsigned int rc =
        key.SetValue(o.value.c_str(), type, data.data(), static_cast<unsigned int>(data.size()));
    return rc == ERROR_SUCCESS ? kOk : Report(rc, path.full);
}

bool Confirm(const std::wstring& what) {
    std::cout << "Delete " << Narrow(what) << "? (y/n) " << std::flush;
    std::string answer;
    return std::getline(std::cin, answer) && !answer.empty() &&
           (answer[0] == 'y' || answer[0] == 'Y');
}

int Delete(const KeyPath& path, const Options& o) {
    if (o.hasValue || o.allValues) {
        MRegistryKey key;
        if (const unsigned int rc = key.Open(path.root, path.sub.c_str()); rc != ERROR_SUCCESS) {
            return Report(rc, path.full);
        }
        const std::wstring what =
            o.allValues ? L"every value of " + path.full : path.full + L" value " + o.value;
        if (!o.force && !Confirm(what)) {
            std::cerr << "kivreg: not deleted\n";
            return kFailed;
        }
        if (!o.allValues) {
            const unsigned int rc = key.DeleteValue(o.value.c_str());
            return rc == ERROR_SUCCESS ? kOk : Report(rc, what);
        }
        std::vector<Value> values;
        if (const unsigned int rc = ReadValues(key, values); rc != ERROR_SUCCESS) {
            return Report(rc, path.full);
        }
        for (const Value& v : values) {
            if (const unsigned int rc = key.DeleteValue(v.name.c_str()); rc != ERROR_SUCCESS) {
                return Report(rc, path.full + L" value " + v.name);
            }
        }
        return kOk;
    }
    if (path.sub.empty()) {
        std::cerr << "kivreg: a root key cannot be deleted\n";
        return kUsage;
    }
    const std::size_t slash = path.sub.rfind(L'\\');
    const std::wstring parentPath = slash == std::wstring::npos ? L"" : path.sub.substr(0, slash);
    const std::wstring leaf = slash == std::wstring::npos ? path.sub : path.sub.substr(slash + 1);
    MRegistry parent;
    if (const unsigned int rc = parent.Open(path.root, parentPath.c_str(), KEY_ALL_ACCESS);
        rc != ERROR_SUCCESS) {
        return Report(rc, path.full);
    }
    if (!o.force && !Confirm(path.full + L" and everything below it")) {
        std::cerr << "kivreg: not deleted\n";
        return kFailed;
    }
    const unsigned int rc = parent.RecurseDeleteKey(leaf.c_str());
    return rc == ERROR_SUCCESS ? kOk : Report(rc, path.full);
}

// Collects a key and everything below it, parents first.
unsigned int Collect(HKEY parent, const std::wstring& sub, const std::wstring& full,
                     std::vector<Section>& sections) {
    MRegistryKey key;
    if (const unsigned int rc = key.Open(parent, sub.c_str()); rc != ERROR_SUCCESS) {
        return rc;
    }
    Section s;
    s.path = full;
    std::vector<std::wstring> subKeys;
    unsigned int rc = ReadValues(key, s.values);
    if (rc == ERROR_SUCCESS) {
        rc = ReadSubKeys(key, subKeys);
    }
    if (rc != ERROR_SUCCESS) {
        return rc;
    }
    sections.push_back(std::move(s));
    for (const std::wstring& name : subKeys) {
        rc = Collect(key.Handle(), name, full + L"\\" + name, sections);
        if (rc != ERROR_SUCCESS) {
            return rc;
        }
    }
    return ERROR_SUCCESS;
}

int Export(const KeyPath& path, const std::string& file) {
    std::vector<Section> sections;
    if (const unsigned int rc = Collect(path.root, path.sub, path.full, sections);
        rc != ERROR_SUCCESS) {
        return Report(rc, path.full);
    }
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    const std::string bytes = kivreg::WriteRegFile(sections);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) {
        std::cerr << "kivreg: cannot write " << file << "\n";
        return kFailed;
    }
    return kOk;
}

int Import(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::cerr << "kivreg: cannot read " << file << "\n";
        return kFailed;
    }
    std::stringstream buffer;
    buffer << in.rdbuf();
    std::vector<Section> sections;
    std::string error;
    if (!kivreg::ReadRegFile(buffer.str(), sections, error)) {
        std::cerr << "kivreg: " << file << ": " << error << "\n";
        return kFailed;
    }
    for (const Section& s : sections) {
        KeyPath path;
        if (!ParseKey(s.path, path) || path.sub.empty()) {
            std::cerr << "kivreg: " << file << ": not a key below a root: " << Narrow(s.path)
                      << "\n";
            return kFailed;
        }
        if (s.remove) {
            Options force;
            force.force = true;
            const int status = Delete(path, force);
            if (status != kOk && status != kFailed) {
                return status;
            }
            continue;
        }
        MRegistryKey key;
        if (const unsigned int rc = key.Create(path.root, path.sub.c_str(), nullptr);
            rc != ERROR_SUCCESS) {
            return Report(rc, path.full);
        }
        for (const Value& v : s.values) {
            const unsigned int rc = v.remove
                                        ? key.DeleteValue(v.name.c_str())
                                        : key.SetValue(v.name.c_str(), v.type, v.data.data(),
                                                       static_cast<unsigned int>(v.data.size()));
            if (rc != ERROR_SUCCESS && !(v.remove && rc == ERROR_FILE_NOT_FOUND)) {
                return Report(rc, path.full + L" value " + v.name);
            }
        }
    }
    return kOk;
}

int Usage(const char* problem) {
    if (problem != nullptr) {
        std::cerr << "kivreg: " << problem << "\n";
    }
    std::cerr << kUsageText;
    return kUsage;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::wstring> args;
    for (int i = 1; i < argc; ++i) {
        args.push_back(kiv::text::FromUtf8(argv[i]));
    }
    if (args.empty()) {
        return Usage(nullptr);
    }
    const std::wstring command = Upper(args[0]);
    if (command == L"/?" || command == L"-H" || command == L"--HELP" || command == L"HELP") {
        std::cout << kUsageText;
        return kOk;
    }
    if (command != L"QUERY" && command != L"ADD" && command != L"DELETE" && command != L"EXPORT" &&
        command != L"IMPORT") {
        return Usage("unknown command");
    }
    if (command == L"IMPORT") {
        if (args.size() != 2) {
            return Usage("import takes one file");
        }
        return Import(argv[2]);
    }
    if (args.size() < 2) {
        return Usage("a key is needed");
    }
    KeyPath path;
    if (!ParseKey(args[1], path)) {
        return Usage("a key starts with HKLM, HKCU, HKCR or HKU");
    }
    Options o;
    if (!ParseOptions(args, 2, o)) {
        return Usage(nullptr);
    }
    if (command == L"EXPORT") {
        if (o.positional.size() != 1 || o.hasValue || o.hasType || o.hasData || o.recurse) {
            return Usage("export takes a key and a file");
        }
        return Export(path, kiv::text::ToUtf8(o.positional[0]));
    }
    if (!o.positional.empty()) {
        return Usage("unexpected argument");
    }
    if (command == L"QUERY") {
        if (o.hasType || o.hasData || o.allValues || o.force) {
            return Usage("query takes /v, /ve and /s only");
        }
        return Query(path, o);
    }
    if (command == L"ADD") {
        if (o.recurse || o.allValues || ((o.hasType || o.hasData) && !o.hasValue)) {
            return Usage("add: /t and /d need /v or /ve");
        }
        return Add(path, o);
    }
    if (command == L"DELETE") {
        if (o.recurse || o.hasType || o.hasData || (o.allValues && o.hasValue)) {
            return Usage("delete takes /v, /ve, /va and /f only");
        }
        return Delete(path, o);
    }
    return Usage("unknown command");
}
