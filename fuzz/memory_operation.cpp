// Reads any text as a memory operation, a list of memories, a list of bytes and an ELF file.

#include "FuzzFile.h"
#include "MemoryOperation.h"

#include <algorithm>
#include <cstdint>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pInput, std::size_t nSize)
{
    // In memory of its own without anything behind it, where reading past its end is noticed.
    const std::unique_ptr<char[]> pCopy(new char[nSize]);
    std::copy(pInput, pInput + nSize, pCopy.get());
    const std::string_view strInput(pCopy.get(), nSize);

    std::string strError;
    if (const auto oOperation = ParseMemoryOperation(strInput, strError)) {
        Require(!oOperation->strFile.empty() && !oOperation->strMemories.empty());
        Require(MEMORY_FORMATS.find(oOperation->cFormat) != std::string_view::npos);
        Require(strInput.find(oOperation->strFile) != std::string_view::npos);
    } else {
        Require(!strError.empty());
    }

    strError.clear();
    const auto anMemories = SelectMemories(strInput, {"flash", "user"}, strError);
    Require(anMemories ? !anMemories->empty() && anMemories->back() < 2 : !strError.empty());

    strError.clear();
    if (const auto strBytes = ParseByteList(strInput, strError)) {
        for (const char cFormat : {'d', 'h', 'o', 'b'})
            Require(ParseByteList(FormatByteList(*strBytes, cFormat), strError) == strBytes);
    } else {
        Require(!strError.empty());
    }

    strError.clear();
    if (const auto aoSegments = FindElfSegments(strInput, strError)) {
        for (const auto& [nAddress, strBytes] : *aoSegments) {
            Require(!strBytes.empty() && nAddress + strBytes.size() > nAddress);
            Require(strBytes.data() >= strInput.data() &&
                    strBytes.data() + strBytes.size() <= strInput.data() + nSize);
        }
    } else {
        Require(!strError.empty());
    }
    return 0;
}
