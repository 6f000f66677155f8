#include <kiv/system/MRegistry.h>
#include <kiv/system/MRegistryKey.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using kiv::system::MRegistry;
using kiv::system::MRegistryKey;

namespace {

constexpr const wchar_t* kBase = L"Software\\KivTest";

unsigned int CreateKey(MRegistry& reg, const wchar_t* path, unsigned int* disposition = nullptr) {
    return reg.Create(HKEY_CURRENT_USER, path, nullptr, 0, KEY_ALL_ACCESS, nullptr, disposition);
}

std::vector<std::wstring> SubKeys(HKEY parent, const wchar_t* path) {
    MRegistryKey key;
    std::vector<std::wstring> names;
    if (key.Open(parent, path) != 0) {
        return names;
    }
    wchar_t name[256];
    unsigned int chars = 256;
    for (unsigned int i = 0; key.EnumKey(i, name, &chars) == 0; ++i, chars = 256) {
        names.emplace_back(name, chars);
    }
    return names;
}

}  // namespace

TEST(MRegistry, CreateMakesEveryLevelReportsNewThenExistingAndBothOpenTheSameKey) {
    MRegistry a;
    MRegistry b;
    unsigned int disposition = 0;
    ASSERT_EQ(CreateKey(a, L"Software\\KivTest\\A\\B\\C", &disposition), 0u);
    EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
    ASSERT_EQ(CreateKey(b, L"Software\\KivTest\\A\\B\\C", &disposition), 0u);
    EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
    ASSERT_EQ(a.SetValue(42u, L"Answer"), 0u);
    unsigned int value = 0;
    EXPECT_EQ(b.QueryValue(value, L"Answer"), 0u);
    EXPECT_EQ(value, 42u);

    MRegistry mid;
    ASSERT_EQ(mid.Open(HKEY_CURRENT_USER, L"Software\\KivTest\\A", KEY_READ), 0u);
    EXPECT_EQ(mid.SetKeyValue(L"B\\C", L"deeper", L"Where"), 0u);
    wchar_t text[16];
    unsigned int size = sizeof text;
    EXPECT_EQ(a.QueryValue(text, L"Where", &size), 0u);
    EXPECT_STREQ(text, L"deeper");
    // The roots are separate trees.
    EXPECT_EQ(mid.Open(HKEY_LOCAL_MACHINE, L"Software\\KivTest\\A", KEY_READ),
              ERROR_FILE_NOT_FOUND);
}

TEST(MRegistry, NamesCompareWithoutCaseAndKeepTheCaseTheyWereMadeWith) {
    MRegistry reg;
    ASSERT_EQ(CreateKey(reg, L"Software\\KivTest\\MixedCase"), 0u);
    ASSERT_EQ(CreateKey(reg, L"SOFTWARE\\kivtest\\mixedcase\\Straße"), 0u);
    EXPECT_EQ(SubKeys(HKEY_CURRENT_USER, kBase), std::vector<std::wstring>{L"MixedCase"});
    EXPECT_EQ(SubKeys(HKEY_CURRENT_USER, L"Software\\KivTest\\MixedCase"),
              std::vector<std::wstring>{L"Straße"});
    EXPECT_EQ(reg.Open(HKEY_CURRENT_USER, L"software\\KIVTEST\\MIXEDCASE\\STRASSE", 0),
              ERROR_FILE_NOT_FOUND);  // upper-casing is per character: ß stays ß
    ASSERT_EQ(reg.Open(HKEY_CURRENT_USER, L"software\\KIVTEST\\MIXEDCASE\\STRAßE", 0), 0u);

    ASSERT_EQ(reg.SetValue(1u, L"LogLevel"), 0u);
    ASSERT_EQ(reg.SetValue(2u, L"LOGLEVEL"), 0u);  // the same value
    unsigned int value = 0;
    EXPECT_EQ(reg.QueryValue(value, L"loglevel"), 0u);
    EXPECT_EQ(value, 2u);
    MRegistryKey key;
    ASSERT_EQ(key.Open(HKEY_CURRENT_USER, L"Software\\KivTest\\MixedCase\\Straße"), 0u);
    wchar_t name[32];
    unsigned int chars = 32;
    ASSERT_EQ(key.EnumValue(0, name, &chars, nullptr, nullptr, nullptr), 0u);
    EXPECT_STREQ(name, L"LogLevel");
    chars = 32;
    EXPECT_EQ(key.EnumValue(1, name, &chars, nullptr, nullptr, nullptr), ERROR_NO_MORE_ITEMS);
}

TEST(MRegistry, StringSizesAreBytesOfTheCallersCharactersAndNumbersReadFourBytesOfAnyType) {
    MRegistry reg;
    ASSERT_EQ(CreateKey(reg, kBase), 0u);
    ASSERT_EQ(reg.SetValue(L"", L"Empty"), 0u);
    ASSERT_EQ(reg.SetValue(L"Grüße \U0001F600", L"Text"), 0u);
    unsigned int size = 0;
    wchar_t buffer[32];
    EXPECT_EQ(reg.QueryValue(nullptr, L"Empty", &size), 0u);
    EXPECT_EQ(size, sizeof(wchar_t));
    size = sizeof buffer;
    EXPECT_EQ(reg.QueryValue(buffer, L"Text", &size), 0u);
    EXPECT_EQ(size, 8 * sizeof(wchar_t));
    EXPECT_STREQ(buffer, L"Grüße \U0001F600");
    // Too small: 234 and the size needed, the buffer untouched.
    size = 4 * sizeof(wchar_t);
    buffer[0] = L'x';
    EXPECT_EQ(reg.QueryValue(buffer, L"Text", &size), ERROR_MORE_DATA);
    EXPECT_EQ(size, 8 * sizeof(wchar_t));
    EXPECT_EQ(buffer[0], L'x');

    unsigned int value = 99;
    EXPECT_EQ(reg.QueryValue(value, L"Empty"), 0u);  // one wchar_t terminator
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(reg.QueryValue(value, L"Text"), ERROR_MORE_DATA);
    EXPECT_EQ(reg.QueryValue(value, L"Absent"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(reg.DeleteValue(L"TEXT"), 0u);
    EXPECT_EQ(reg.DeleteValue(L"Text"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(reg.QueryValue(buffer, L"Text", &size), ERROR_FILE_NOT_FOUND);
}

TEST(MRegistryKey, EveryValueTypeRoundTrips) {
    using Value = std::pair<unsigned int, std::string>;  // type, bytes
    auto bytes = [](const void* p, std::size_t n) {
        return std::string(static_cast<const char*>(p), n);
    };
    auto stored = [&](MRegistryKey& key, const wchar_t* name) {
        unsigned char out[64];
        unsigned int type = 0;
        unsigned int size = sizeof out;
        EXPECT_EQ(key.QueryValue(name, &type, out, &size), 0u) << name;
        return Value{type, bytes(out, size)};
    };
    MRegistryKey key;
    ASSERT_EQ(key.Create(HKEY_LOCAL_MACHINE, kBase, nullptr), 0u);
    const unsigned char binary[] = {0, 1, 2, 0xFF, 0};
    const wchar_t multi[] = L"one\0two\0";  // two strings and the closing terminator
    const unsigned long long qword = 0x0123456789ABCDEFULL;
    ASSERT_EQ(key.SetValue(L"Bin", REG_BINARY, binary, sizeof binary), 0u);
    ASSERT_EQ(key.SetValue(L"Multi", REG_MULTI_SZ, multi, sizeof multi), 0u);
    ASSERT_EQ(key.SetValue(L"Expand", REG_EXPAND_SZ, L"%HOME%", 7 * sizeof(wchar_t)), 0u);
    ASSERT_EQ(key.SetValue(L"Q", REG_QWORD, &qword, sizeof qword), 0u);
    ASSERT_EQ(key.SetValue(L"Odd", 0x1234, "xyz", 3), 0u);
    ASSERT_EQ(key.SetValue(nullptr, REG_SZ, L"default", 8 * sizeof(wchar_t)), 0u);
    EXPECT_EQ(stored(key, L"bin"), Value(REG_BINARY, bytes(binary, sizeof binary)));
    EXPECT_EQ(stored(key, L"Multi"), Value(REG_MULTI_SZ, bytes(multi, sizeof multi)));
    EXPECT_EQ(stored(key, L"Expand"), Value(REG_EXPAND_SZ, bytes(L"%HOME%", 7 * sizeof(wchar_t))));
    EXPECT_EQ(stored(key, L"Q"), Value(REG_QWORD, bytes(&qword, 8)));
    EXPECT_EQ(stored(key, L"Odd"), Value(0x1234, "xyz"));
    EXPECT_EQ(stored(key, L""), Value(REG_SZ, bytes(L"default", 8 * sizeof(wchar_t))));
}

TEST(MRegistry, FailedOpenOrCreateKeepsTheOldKeyAndCreateStillStoresDisposition) {
    MRegistry reg;
    ASSERT_EQ(CreateKey(reg, kBase), 0u);
    ASSERT_EQ(reg.SetValue(7u, L"Kept"), 0u);

    EXPECT_EQ(reg.Open(HKEY_CURRENT_USER, L"Software\\Absent", KEY_READ), ERROR_FILE_NOT_FOUND);
    const std::wstring tooLong(256, L'k');
    unsigned int disposition = 0xABCD;
    EXPECT_EQ(CreateKey(reg, tooLong.c_str(), &disposition), ERROR_INVALID_PARAMETER);
    EXPECT_NE(disposition, 0xABCDu);

    unsigned int value = 0;
    EXPECT_EQ(reg.QueryValue(value, L"Kept"), 0u);
    EXPECT_EQ(value, 7u);
    EXPECT_EQ(CreateKey(reg, std::wstring(255, L'k').c_str()), 0u);  // the longest name
}

TEST(MRegistry, CopiesShareOneKeyUntilTheLastGoesAndWithoutAKeyEveryCallIsABadHandle) {
    MRegistry copy;
    {
        MRegistry original;
        ASSERT_EQ(CreateKey(original, kBase), 0u);
        copy = original;
        MRegistry another(original);
    }
    EXPECT_EQ(copy.SetValue(5u, L"StillOpen"), 0u);
    MRegistry other(copy);
    EXPECT_EQ(other.Close(), 0u);  // closes the shared key for both
    EXPECT_EQ(copy.SetValue(5u, L"StillOpen"), ERROR_INVALID_HANDLE);
    MRegistry none;
    unsigned int value = 0;
    EXPECT_EQ(none.QueryValue(value, L"x"), ERROR_INVALID_HANDLE);
    EXPECT_EQ(none.SetValue(1u, L"x"), ERROR_INVALID_HANDLE);
    EXPECT_EQ(none.DeleteSubKey(L"x"), ERROR_INVALID_HANDLE);
    EXPECT_EQ(none.Close(), 0u);
    EXPECT_EQ(none.Close(), 0u);
}

TEST(MRegistry, KeyWithSubKeysIsNotDeletedButRecurseDeleteRemovesTheTree) {
    MRegistry reg;
    ASSERT_EQ(CreateKey(reg, L"Software\\KivTest\\Tree\\A\\A1"), 0u);
    ASSERT_EQ(CreateKey(reg, L"Software\\KivTest\\Tree\\B"), 0u);
    ASSERT_EQ(reg.SetValue(1u, L"v"), 0u);
    ASSERT_EQ(reg.Open(HKEY_CURRENT_USER, kBase, KEY_ALL_ACCESS), 0u);

    EXPECT_EQ(reg.DeleteSubKey(L"Tree"), ERROR_ACCESS_DENIED);
    EXPECT_EQ(reg.DeleteSubKey(L"Tree\\A\\A1"), 0u);
    EXPECT_EQ(reg.DeleteSubKey(L"Tree\\A\\A1"), ERROR_FILE_NOT_FOUND);
    ASSERT_EQ(CreateKey(reg, L"Software\\KivTest\\Tree\\A\\A2\\A3"), 0u);
    ASSERT_EQ(reg.Open(HKEY_CURRENT_USER, kBase, KEY_ALL_ACCESS), 0u);

    EXPECT_EQ(reg.RecurseDeleteKey(L"Absent"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(SubKeys(HKEY_CURRENT_USER, L"Software\\KivTest\\Tree").size(), 2u);
    EXPECT_EQ(reg.RecurseDeleteKey(L"Tree"), 0u);
    EXPECT_TRUE(SubKeys(HKEY_CURRENT_USER, kBase).empty());
    // The tree's values went with it: a new key of the same name is empty.
    ASSERT_EQ(CreateKey(reg, L"Software\\KivTest\\Tree\\B"), 0u);
    unsigned int value = 0;
    EXPECT_EQ(reg.QueryValue(value, L"v"), ERROR_FILE_NOT_FOUND);
}

TEST(MRegistry, KeyDeletedThroughAnotherHandleReportsKeyDeleted) {
    MRegistry doomed;
    MRegistry parent;
    ASSERT_EQ(CreateKey(doomed, L"Software\\KivTest\\Doomed"), 0u);
    ASSERT_EQ(doomed.SetValue(1u, L"v"), 0u);
    ASSERT_EQ(CreateKey(parent, kBase), 0u);
    ASSERT_EQ(parent.DeleteSubKey(L"Doomed"), 0u);

    unsigned int value = 0;
    EXPECT_EQ(doomed.QueryValue(value, L"v"), ERROR_KEY_DELETED);
    EXPECT_EQ(doomed.SetValue(2u, L"v"), ERROR_KEY_DELETED);
    EXPECT_EQ(doomed.DeleteValue(L"v"), ERROR_KEY_DELETED);
    EXPECT_EQ(doomed.SetKeyValue(L"Child", L"x", L"v"), ERROR_KEY_DELETED);
    // A new key of the same name is another key.
    MRegistry again;
    ASSERT_EQ(CreateKey(again, L"Software\\KivTest\\Doomed"), 0u);
    EXPECT_EQ(doomed.SetValue(2u, L"v"), ERROR_KEY_DELETED);
    EXPECT_EQ(again.QueryValue(value, L"v"), ERROR_FILE_NOT_FOUND);
}

TEST(MRegistry, EnumerationAtIndexZeroWhileDeletingVisitsEveryKeyOnce) {
    MRegistry reg;
    for (const wchar_t* name : {L"c", L"A", L"b", L"D"}) {
        ASSERT_EQ(CreateKey(reg, (std::wstring(kBase) + L"\\List\\" + name).c_str()), 0u);
    }
    EXPECT_EQ(SubKeys(HKEY_CURRENT_USER, L"Software\\KivTest\\List"),
              (std::vector<std::wstring>{L"A", L"b", L"c", L"D"}));
    MRegistryKey list;
    ASSERT_EQ(list.Open(HKEY_CURRENT_USER, L"Software\\KivTest\\List"), 0u);
    std::vector<std::wstring> deleted;
    wchar_t name[256];
    unsigned int chars = 256;
    while (list.EnumKey(0, name, &chars) == 0) {
        deleted.emplace_back(name);
        ASSERT_EQ(list.DeleteSubKey(name), 0u);
        chars = 256;
    }
    EXPECT_EQ(deleted, (std::vector<std::wstring>{L"A", L"b", L"c", L"D"}));
    EXPECT_EQ(list.EnumKey(0, name, &chars), ERROR_NO_MORE_ITEMS);

    // A name buffer too small: 234 and the capacity needed.
    ASSERT_EQ(CreateKey(reg, L"Software\\KivTest\\List\\LongerName"), 0u);
    chars = 4;
    EXPECT_EQ(list.EnumKey(0, name, &chars), ERROR_MORE_DATA);
    EXPECT_EQ(chars, 11u);
}

TEST(MRegistry, SetValueWithParentCreatesTheKeyAndLeavesThisObjectAlone) {
    MRegistry reg;
    EXPECT_EQ(reg.SetValue(HKEY_CURRENT_USER, L"Software\\KivTest\\Made", L"yes", L"Flag"), 0u);
    unsigned int value = 0;
    EXPECT_EQ(reg.QueryValue(value, L"Flag"), ERROR_INVALID_HANDLE);  // still no key open
    ASSERT_EQ(reg.Open(HKEY_CURRENT_USER, L"Software\\KivTest\\Made", KEY_READ), 0u);
    wchar_t text[8];
    unsigned int size = sizeof text;
    EXPECT_EQ(reg.QueryValue(text, L"Flag", &size), 0u);
    EXPECT_STREQ(text, L"yes");
    EXPECT_EQ(reg.SetValue(HKEY_CURRENT_USER, std::wstring(300, L'x').c_str(), L"v", L"n"),
              ERROR_INVALID_PARAMETER);
}
