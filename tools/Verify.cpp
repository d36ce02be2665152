#include "Verify.h"

#include "Text.h"

#include <algorithm>

namespace
{

constexpr std::size_t MAX_MISMATCHES = 10; // that are told one by one

} // namespace

void CVerify::Compare(const CImage& oDevice, const CImage& oInput)
{
    auto itDevice = oDevice.GetRanges().begin();
    for (const CImage::SRange& oRange : oInput.GetRanges()) {
        while (itDevice->GetLast() < oRange.nAddress)
            ++itDevice;
        Compare(oRange.nAddress,
                std::string_view(itDevice->strBytes)
                    .substr(oRange.nAddress - itDevice->nAddress, oRange.strBytes.size()),
                oRange.strBytes);
    }
}

void CVerify::Compare(std::uint64_t nAddress, std::string_view strDevice, std::string_view strInput)
{
    m_nBytes += strInput.size();
    if (strDevice == strInput)
        return;
    for (std::size_t i = 0; i < strInput.size(); ++i) {
        const unsigned nDevice = static_cast<unsigned char>(strDevice[i]);
        const unsigned nInput = static_cast<unsigned char>(strInput[i]);
        if (nDevice == nInput)
            continue;
        m_bSet |= (nDevice & ~nInput) != 0;
        m_bCleared |= (nInput & ~nDevice) != 0;
        if (++m_nDiffering > MAX_MISMATCHES)
            continue;
        m_strLines += fmt::format("  device 0x{:02x} != input 0x{:02x} at addr 0x{:04x} (error)\n", nDevice,
                                  nInput, nAddress + i);
        m_oMismatches.push_back({{"address", nAddress + i}, {"device", nDevice}, {"input", nInput}});
    }
}

int CVerify::Report(bool bNote) const
{
    static_cast<void>(std::fflush(stdout)); // so that the order is right on a terminal
    PutError(m_strLines);
    if (m_nDiffering > MAX_MISMATCHES)
        PutError(fmt::format("  and {} more\n", m_nDiffering - MAX_MISMATCHES));
    if (m_oTool.GetOptions().bJson)
        CTool::PrintJson(
            {{"operation", "verify"},
             {"memory", m_strMemory},
             {"bytes", m_nBytes},
             {"differing", m_nDiffering},
             {"bits_set", m_bSet},
             {"bits_cleared", m_bCleared},
             {"mismatches", m_oMismatches},
             {"seconds",
              std::chrono::duration<double>(std::chrono::steady_clock::now() - m_oStart).count()}});
    if (m_nDiffering > 0)
        return m_oTool.Fail(
            eStatusMismatch,
            fmt::format("{} of {} of {} differ{} from {}: {}", m_nDiffering, Plural(m_nBytes, "byte"),
                        m_strMemory, m_nDiffering == 1 ? "s" : "", m_strInput,
                        m_bSet && m_bCleared ? "bits are set and cleared on the device"
                        : m_bSet             ? "bits are only set on the device, as if not written"
                                 : "bits are only cleared on the device, as if not erased before"));
    if (bNote)
        m_oTool.Note(fmt::format("{} of {} verified", Plural(m_nBytes, "byte"), m_strMemory));
    return eStatusDone;
}

std::string GetInputName(const std::string& strFile)
{
    return strFile == "-" ? "standard input" : "input file " + strFile;
}
