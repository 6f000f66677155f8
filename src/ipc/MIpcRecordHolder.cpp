#include <cstring>

#include "foundation/Text.h"
#include "ipc/MIpcImpl.h"

namespace kiv::ipc {

using namespace detail;

std::u16string RecordText(const wchar_t* text, std::size_t max) {
    if (text == nullptr) {
        return {};
    }
    std::u16string s = kiv::text::ToUtf16(text);
    if (s.size() > max) {
        s.resize(max);
        if (s.back() >= 0xD800 && s.back() <= 0xDBFF) {
            s.pop_back();
        }
    }
    return s;
}

const wchar_t* MIpcRecordHolder::Name() {
    m_name = kiv::text::FromUtf16(Bytes(m_record).Text(kNameAt, kNameChars));
    return m_name.c_str();
}

unsigned int MIpcRecordHolder::List(bool commands, std::vector<_tagIpcObject>& list) {
    list.clear();
    if (IpcDirectory* directory = IpcDirectory::Current()) {
        Bytes r(m_record);
        directory->LookUp(r.Text(kNameAt, kNameChars), m_record);
    }
    const Bytes r(m_record);
    const std::int32_t count =
        commands ? r.Count(kCommandCountAt, kMaxCommands) : r.Count(kEventCountAt, kMaxEvents);
    for (std::int32_t i = 0; i < count; ++i) {
        const std::size_t name =
            commands ? CommandAt(i) + kCommandNameAt : EventAt(i) + kEventNameAt;
        const std::size_t description =
            commands ? CommandAt(i) + kCommandDescriptionAt : EventAt(i) + kEventDescriptionAt;
        _tagIpcObject object;
        std::memset(&object, 0, sizeof object);
        const std::wstring n = kiv::text::FromUtf16(r.Text(name, kNameChars - 1));
        const std::wstring d = kiv::text::FromUtf16(r.Text(description, kDescriptionChars - 1));
        n.copy(object.name, std::min<std::size_t>(n.size(), 31));
        d.copy(object.description, std::min<std::size_t>(d.size(), 63));
        list.push_back(object);
    }
    return 0;
}

}  // namespace kiv::ipc
