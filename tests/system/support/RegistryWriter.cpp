// Writes `count` values named "<prefix><i>" (REG_DWORD i * 7 + 1, and a
// REG_SZ "<prefix><i>" beside it) into HKCU "Software\KivTest\Shared",
// reading each back at once. Exits 0 when every call succeeded, 1 on the
// first error (printed), 2 on bad arguments.
#include <kiv/system/MRegistry.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "foundation/Text.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    const std::wstring prefix = kiv::text::FromUtf8(argv[1]);
    const int count = std::atoi(argv[2]);
    kiv::system::MRegistry reg;
    unsigned int rc = reg.Create(HKEY_CURRENT_USER, L"Software\\KivTest\\Shared", nullptr, 0,
                                 KEY_ALL_ACCESS, nullptr, nullptr);
    if (rc != 0) {
        std::fprintf(stderr, "create: %u\n", rc);
        return 1;
    }
    for (int i = 0; i < count; ++i) {
        const std::wstring name = prefix + std::to_wstring(i);
        const std::wstring textName = name + L"_text";
        if ((rc = reg.SetValue(static_cast<unsigned int>(i * 7 + 1), name.c_str())) != 0 ||
            (rc = reg.SetValue(name.c_str(), textName.c_str())) != 0) {
            std::fprintf(stderr, "set %d: %u\n", i, rc);
            return 1;
        }
        unsigned int value = 0;
        if ((rc = reg.QueryValue(value, name.c_str())) != 0 ||
            value != static_cast<unsigned int>(i * 7 + 1)) {
            std::fprintf(stderr, "query %d: %u (%u)\n", i, rc, value);
            return 1;
        }
    }
    return 0;
}
