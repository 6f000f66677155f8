// Status words of the framework and their messages.
//
// Every operation that can fail returns a 32-bit status word: 0 is success;
// a failure packs a severity (bits 31..30), a module (bits 29..24) and a code
// (bits 15..0). MError holds one word, takes it apart and gives its message.
#pragma once

#include <kiv/platform/KivApi.h>

namespace kiv {

class KIV_API MError {
public:
    static const unsigned int MASK_SEVERITY;  ///< 0xC0000000
    static const unsigned int MASK_MODULE;    ///< 0x3F000000
    static const unsigned int MASK_CATEGORY;  ///< 0x3FFF0000: the module and a sub-category
    static const unsigned int MASK_CODE;      ///< 0x0000FFFF
    static const int NONE;                    ///< 0, the word that means no error

    /// A word of 0.
    MError();
    MError(const MError& other);
    MError& operator=(const MError& other);
    /// Loads a status word returned by another operation.
    MError& operator=(unsigned int value);
    virtual ~MError();

    /// The whole word.
    unsigned int GetValue() const;
    /// The severity bits, in place (not shifted).
    unsigned int GetSeverity() const;
    /// The category bits (module and sub-category), in place.
    unsigned int GetCategory() const;
    /// The code bits.
    unsigned int GetCode() const;

    /// Writes the message of the word into `buf`. On entry `len` is the
    /// capacity of `buf` in characters, terminator included; on return the
    /// number of characters written. Only GPS words (module 7) have messages;
    /// for every other word `buf` and `len` are left as they were.
    void GetErrorMessage(wchar_t* buf, int& len) const;

private:
    unsigned int m_value;
};

}  // namespace kiv
