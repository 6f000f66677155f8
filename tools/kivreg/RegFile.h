// The registry's text exchange format (".reg" files): a header line, then
// "[key path]" sections with "name"=data lines.
#pragma once

#include <string>
#include <vector>

namespace kivreg {

/// One value as the registry hands it out: string types as wchar_t bytes.
struct Value {
    std::wstring name;  ///< empty: the key's default value ("@")
    unsigned int type = 0;
    std::string data;
    bool remove = false;  ///< "name"=- in an imported file
};

struct Section {
    std::wstring path;    ///< full path, root spelled out
    bool remove = false;  ///< "[-path]" in an imported file
    std::vector<Value> values;
};

/// The file text of `sections`, as UTF-16LE with a byte-order mark.
std::string WriteRegFile(const std::vector<Section>& sections);

/// Parses a file in UTF-16LE (with its mark) or UTF-8. False with a message
/// naming the line on a syntax error.
bool ReadRegFile(const std::string& bytes, std::vector<Section>& sections, std::string& error);

/// The text of `data` of type `type` as `kivreg query` shows it.
std::wstring ShowData(unsigned int type, const std::string& data);

/// The stored form of data typed on the command line; false if it does not
/// fit the type.
bool ParseCommandLineData(unsigned int type, const std::wstring& text, std::string& data);

/// "REG_SZ" and the other type names, and back; unknown names give false.
std::wstring TypeName(unsigned int type);
bool TypeFromName(const std::wstring& name, unsigned int& type);

}  // namespace kivreg
