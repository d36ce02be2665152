#include "SpiFlash.h"

#include "Text.h"

#include <algorithm>
#include <cstring>

using namespace std::chrono_literals;

namespace
{

constexpr std::uint64_t SHORT_ADDRESSES = 0x1000000; // bytes that an address of 3 bytes reaches
constexpr unsigned char STATUS_BUSY = 0x01;
constexpr unsigned char STATUS_WRITE_ENABLED = 0x02;
constexpr std::size_t MAX_READ = 65520; // bytes of one transfer
constexpr std::size_t SECTORS = CSpiFlash::BLOCK / CSpiFlash::SECTOR;

// Several times what the slowest chips take.
constexpr auto LIMIT_PROGRAM = 1s;
constexpr auto LIMIT_SECTOR = 5s;
constexpr auto LIMIT_BLOCK = 20s;
constexpr auto LIMIT_CHIP = 30min;

// Whether some bit has to change from 0 to 1, which only erasing does.
bool NeedsErase(std::string_view strOld, std::string_view strNew)
{
    for (std::size_t i = 0; i < strOld.size(); ++i) {
        if ((strNew[i] & ~strOld[i]) != 0)
            return true;
    }
    return false;
}

} // namespace

/// What is to become of one block.
struct CSpiFlash::SUpdate {
    std::uint64_t nAddress; // a multiple of BLOCK
    bool bErasing;          // the data is to be erased, whatever is there
    std::size_t nUnit;      // bytes of an erase unit
    CProgress& oProgress;
    std::uint64_t nDone; // data bytes before
    std::string strNew = std::string(BLOCK, '\xFF');
    std::string strOld = std::string(BLOCK, '\xFF');
    std::string strIsData = std::string(BLOCK, '\0'); // 1 where there is data
    std::vector<bool> abTouched{};                    // units with data
    std::vector<bool> abFull{};                       // units that are all data
    std::vector<bool> abErase{};                      // units to be erased

    /// @return true when something is to be erased, and there is something beside the data
    bool HasOthers() const
    {
        for (std::size_t i = 0; i < BLOCK; ++i) {
            if (strIsData[i] == 0 && strOld[i] != '\xFF')
                return std::find(abErase.begin(), abErase.end(), true) != abErase.end();
        }
        return false;
    }

    std::string_view Part(const std::string& strBytes, std::size_t i) const
    {
        return std::string_view(strBytes).substr(i * nUnit, nUnit);
    }
};

CSpiFlash::CSpiFlash(CTool& oTool, const SOptions& oOptions)
    : m_oTool(oTool), m_oOptions(oOptions), m_oSpi(oTool)
{
}

int CSpiFlash::Open()
{
    int nStatus = m_oSpi.OpenGateway();
    if (nStatus != 0 || m_oOptions.nSize != 0)
        return nStatus;
    std::string strId;
    nStatus = ReadId(strId);
    if (nStatus != 0)
        return nStatus;
    m_oOptions.nSize = GetSize(strId);
    if (m_oOptions.nSize == 0)
        return m_oTool.Fail(
            eStatusUsage,
            fmt::format("the flash's id {} does not tell its size: give it with --size", ToHex(strId)));
    return eStatusDone;
}

int CSpiFlash::ReadId(std::string& strId)
{
    m_strBuffer.assign(4, '\0');
    if (const int nStatus = m_oSpi.Transfer("read flash id", "\x9F", m_strBuffer); nStatus != 0)
        return nStatus;
    strId = m_strBuffer.substr(1);
    if (strId == std::string(3, '\0') || strId == "\xFF\xFF\xFF")
        return m_oTool.Fail(eStatusRefused, fmt::format("no flash answers: its id reads {}", ToHex(strId)));
    return eStatusDone;
}

std::uint64_t CSpiFlash::GetSize(std::string_view strId)
{
    const auto nBits = static_cast<unsigned char>(strId[2]);
    return nBits >= 12 && nBits <= 32 ? std::uint64_t{1} << nBits : 0;
}

std::string CSpiFlash::Address(unsigned char nShort, unsigned char nLong, std::uint64_t nAddress) const
{
    const bool bLong = m_oOptions.nSize > SHORT_ADDRESSES;
    std::string strFrame(1, static_cast<char>(bLong ? nLong : nShort));
    for (unsigned n = bLong ? 32 : 24; n > 0; n -= 8)
        strFrame += static_cast<char>(nAddress >> (n - 8));
    return strFrame;
}

int CSpiFlash::Read(const char* pTitle, const std::vector<SAddresses>& aoSpans, CImage& oRead)
{
    std::uint64_t nTotal = 0;
    for (const SAddresses& oSpan : aoSpans)
        nTotal += oSpan.nLast - oSpan.nFirst + 1;
    CProgress oProgress(m_oTool, pTitle, nTotal);
    std::uint64_t nDone = 0;
    for (const auto& [nFirst, nLast] : aoSpans) {
        std::string strBytes;
        while (strBytes.size() <= nLast - nFirst) {
            const std::size_t nStart = strBytes.size();
            strBytes.resize(std::min(nStart + MAX_READ, nLast - nFirst + 1));
            const std::size_t nPiece = strBytes.size() - nStart;
            if (const int nStatus = ReadRange(nFirst + nStart, strBytes.data() + nStart, nPiece);
                nStatus != 0)
                return nStatus;
            nDone += nPiece;
            oProgress.Update(nDone);
        }
        oRead.Set({{nFirst, std::move(strBytes)}});
    }
    oProgress.Finish();
    return eStatusDone;
}

int CSpiFlash::ReadRange(std::uint64_t nAddress, char* pBytes, std::size_t nLength)
{
    for (std::size_t nPiece = 0; nLength > 0; nLength -= nPiece, pBytes += nPiece, nAddress += nPiece) {
        nPiece = std::min(nLength, MAX_READ);
        const std::string strFrame = Address(0x03, 0x13, nAddress);
        m_strBuffer.resize(strFrame.size() + nPiece);
        if (const int nStatus = m_oSpi.Transfer("read flash", strFrame, m_strBuffer); nStatus != 0)
            return nStatus;
        std::memcpy(pBytes, m_strBuffer.data() + strFrame.size(), nPiece);
    }
    return eStatusDone;
}

int CSpiFlash::ReadStatus(unsigned char& nStatus)
{
    m_strBuffer.resize(2);
    if (const int nResult = m_oSpi.Transfer("read flash status", "\x05", m_strBuffer); nResult != 0)
        return nResult;
    nStatus = static_cast<unsigned char>(m_strBuffer[1]);
    return eStatusDone;
}

int CSpiFlash::WaitReady(std::string_view strOperation, std::chrono::milliseconds oLimit)
{
    const auto oStart = std::chrono::steady_clock::now();
    while (true) {
        const auto oElapsed = std::chrono::steady_clock::now() - oStart;
        unsigned char nStatus = 0;
        if (const int nResult = ReadStatus(nStatus); nResult != 0)
            return nResult;
        if ((nStatus & STATUS_BUSY) == 0)
            return eStatusDone;
        if (oElapsed > oLimit)
            return m_oTool.Fail(eStatusNoAnswer, fmt::format("{}: the flash is still busy after {} ms",
                                                             strOperation, oLimit.count()));
        // A page takes about a millisecond and is asked after at once; what takes long, in proportion.
        // After a signal it is asked without a pause, if that is still to be obeyed: then the next question fails.
        if (oElapsed > 4ms)
            m_oTool.GetInterrupt().Wait(std::min<std::chrono::nanoseconds>(oElapsed / 8, 20ms));
    }
}

int CSpiFlash::Change(std::string_view strOperation, std::string_view strFrame,
                      std::chrono::milliseconds oLimit)
{
    std::string strNone;
    unsigned char nEnabled = 0;
    int nStatus = m_oSpi.Transfer("flash write enable", "\x06", strNone);
    if (nStatus == 0)
        nStatus = ReadStatus(nEnabled);
    if (nStatus != 0)
        return nStatus;
    if ((nEnabled & STATUS_WRITE_ENABLED) == 0)
        return m_oTool.Fail(
            eStatusRefused,
            fmt::format("{}: the flash does not take the write enable command: status 0x{:02x}", strOperation,
                        nEnabled));
    nStatus = m_oSpi.Transfer(strOperation, strFrame, strNone);
    return nStatus != 0 ? nStatus : WaitReady(strOperation, oLimit);
}

int CSpiFlash::Write(const CImage& oImage)
{
    CProgress oProgress(m_oTool, "Writing", oImage.GetSize());
    return Update(oImage, false, oProgress);
}

int CSpiFlash::Erase(std::uint64_t nAddress, std::uint64_t nLength)
{
    CImage oImage;
    oImage.Set(nAddress, std::string(nLength, '\xFF'));
    CProgress oProgress(m_oTool, "Erasing", nLength);
    return Update(oImage, true, oProgress);
}

int CSpiFlash::EraseAll()
{
    CProgress oProgress(m_oTool, "Erasing", m_oOptions.nSize);
    int nStatus = WaitReady("flash status", LIMIT_PROGRAM);
    if (nStatus == 0)
        nStatus = Change("erase flash", "\xC7", LIMIT_CHIP);
    if (nStatus != 0)
        return nStatus;
    m_nErased += m_oOptions.nSize;
    oProgress.Finish();
    return eStatusDone;
}

int CSpiFlash::Update(const CImage& oImage, bool bErasing, CProgress& oProgress)
{
    int nStatus = WaitReady("flash status", LIMIT_PROGRAM);
    std::uint64_t nNext = 0; // what lies below is done
    std::uint64_t nDone = 0;
    for (auto itRange = oImage.GetRanges().begin(); itRange != oImage.GetRanges().end(); ++itRange) {
        nNext = std::max(nNext, itRange->nAddress / BLOCK * BLOCK);
        for (; nStatus == 0 && nNext <= itRange->GetLast(); nNext += BLOCK) {
            SUpdate oUpdate{nNext, bErasing, m_oOptions.nErase == BLOCK ? BLOCK : SECTOR, oProgress, nDone};
            for (auto itPart = itRange; itPart != oImage.GetRanges().end(); ++itPart) {
                const CImage::SRange& oPart = *itPart;
                const std::uint64_t nFirst = std::max(nNext, oPart.nAddress);
                const std::uint64_t nEnd = std::min(nNext + BLOCK, oPart.GetLast() + 1);
                if (nFirst >= nEnd)
                    break;
                oUpdate.strNew.replace(nFirst - nNext, nEnd - nFirst, oPart.strBytes, nFirst - oPart.nAddress,
                                       nEnd - nFirst);
                oUpdate.strIsData.replace(nFirst - nNext, nEnd - nFirst, nEnd - nFirst, '\1');
                nDone += nEnd - nFirst;
            }
            nStatus = UpdateBlock(oUpdate);
        }
    }
    if (nStatus == 0)
        oProgress.Finish();
    return nStatus;
}

int CSpiFlash::UpdateBlock(SUpdate& oUpdate)
{
    const std::size_t nUnits = BLOCK / oUpdate.nUnit;
    for (std::size_t i = 0; i < nUnits; ++i) {
        const std::string_view strPart = oUpdate.Part(oUpdate.strIsData, i);
        oUpdate.abTouched.push_back(strPart.find('\1') != std::string_view::npos);
        oUpdate.abFull.push_back(strPart.find('\0') == std::string_view::npos);
    }
    oUpdate.abErase.resize(nUnits);
    int nStatus = ReadOld(oUpdate);
    if (nStatus != 0)
        return nStatus;
    // What is erased beside the data is nowhere else: a signal ends nothing before that is programmed again.
    const bool bShared = m_oOptions.bPreserve && oUpdate.HasOthers();
    const CInterrupt::CScope oScope(m_oTool.GetInterrupt(),
                                    bShared ? CInterrupt::eByItself : CInterrupt::eSoon);
    m_oSpi.SetIgnoringSignals(bShared);
    nStatus = EraseOld(oUpdate);
    if (nStatus == 0)
        nStatus = ProgramNew(oUpdate);
    m_oSpi.SetIgnoringSignals(false);
    return nStatus == 0 && m_oTool.GetInterrupt().GetSignal() != 0 ? m_oTool.Fail(eStatusNoAnswer, "")
                                                                   : nStatus;
}

int CSpiFlash::ReadOld(SUpdate& oUpdate)
{
    const auto nUnits = oUpdate.abTouched.size();
    const auto IsRead = [&](std::size_t i) {
        return oUpdate.abTouched[i] &&
               (oUpdate.bErasing ? !oUpdate.abFull[i] && m_oOptions.bPreserve : m_oOptions.bErase);
    };
    for (std::size_t i = 0, nEnd = 0; i < nUnits; i = nEnd + 1) {
        for (nEnd = i; nEnd < nUnits && IsRead(nEnd);)
            ++nEnd;
        if (const int nStatus =
                ReadRange(oUpdate.nAddress + i * oUpdate.nUnit, oUpdate.strOld.data() + i * oUpdate.nUnit,
                          (nEnd - i) * oUpdate.nUnit);
            nStatus != 0)
            return nStatus;
    }
    for (std::size_t i = 0; i < BLOCK; ++i) {
        if (oUpdate.strIsData[i] == 0)
            oUpdate.strNew[i] = oUpdate.strOld[i];
    }
    for (std::size_t i = 0; i < nUnits; ++i)
        oUpdate.abErase[i] = oUpdate.abTouched[i] &&
                             ((oUpdate.bErasing && !IsRead(i)) ||
                              NeedsErase(oUpdate.Part(oUpdate.strOld, i), oUpdate.Part(oUpdate.strNew, i)));
    return eStatusDone;
}

int CSpiFlash::EraseOld(SUpdate& oUpdate)
{
    const auto nErase =
        static_cast<std::size_t>(std::count(oUpdate.abErase.begin(), oUpdate.abErase.end(), true));
    const bool bAllTouched = std::count(oUpdate.abTouched.begin(), oUpdate.abTouched.end(), false) == 0;
    // Erasing a whole block takes about as long as five sectors, programming again what had not to be erased longer.
    const bool bBlock =
        oUpdate.nUnit == BLOCK ? nErase > 0 : m_oOptions.nErase == 0 && bAllTouched && nErase > SECTORS / 2;
    if (bBlock)
        oUpdate.abErase.assign(oUpdate.abErase.size(), true);
    for (std::size_t i = 0; i < oUpdate.abErase.size(); ++i) {
        if (!oUpdate.abErase[i])
            continue;
        const std::size_t nFirst = i * oUpdate.nUnit;
        if (i == 0 || !bBlock) {
            if (m_oTool.GetInterrupt().GetSignal() != 0)
                break;
            const std::uint64_t nAddress = oUpdate.nAddress + nFirst;
            const int nStatus = bBlock ? Change(fmt::format("erase 64 KiB of flash at 0x{:x}", nAddress),
                                                Address(0xD8, 0xDC, nAddress), LIMIT_BLOCK)
                                       : Change(fmt::format("erase 4 KiB of flash at 0x{:x}", nAddress),
                                                Address(0x20, 0x21, nAddress), LIMIT_SECTOR);
            if (nStatus != 0)
                return nStatus;
            m_nErased += bBlock ? BLOCK : SECTOR;
        }
        oUpdate.strOld.replace(nFirst, oUpdate.nUnit, oUpdate.nUnit, '\xFF');
        for (std::size_t n = nFirst; !m_oOptions.bPreserve && n < nFirst + oUpdate.nUnit; ++n) {
            if (oUpdate.strIsData[n] == 0)
                oUpdate.strNew[n] = '\xFF';
        }
    }
    return eStatusDone;
}

int CSpiFlash::ProgramNew(SUpdate& oUpdate)
{
    const std::size_t nPage = m_oOptions.nPage;
    for (std::size_t nStart = 0; nStart < BLOCK; nStart += nPage) {
        const bool bEnding = m_oTool.GetInterrupt().GetSignal() != 0;
        for (std::size_t n = nStart; bEnding && n < nStart + nPage; ++n) {
            if (oUpdate.strIsData[n] != 0)
                oUpdate.strNew[n] = oUpdate.strOld[n]; // only what lies beside the data goes back
        }
        const auto itOld = oUpdate.strOld.begin() + static_cast<std::ptrdiff_t>(nStart);
        const auto itNew = oUpdate.strNew.begin() + static_cast<std::ptrdiff_t>(nStart);
        const auto nSize = static_cast<std::ptrdiff_t>(nPage);
        const auto nFirst =
            static_cast<std::size_t>(std::mismatch(itNew, itNew + nSize, itOld).first - itNew);
        if (nFirst < nPage) {
            std::size_t nEnd = nPage;
            while (itNew[static_cast<std::ptrdiff_t>(nEnd) - 1] ==
                   itOld[static_cast<std::ptrdiff_t>(nEnd) - 1])
                --nEnd;
            const std::uint64_t nAddress = oUpdate.nAddress + nStart + nFirst;
            std::string strFrame = Address(0x02, 0x12, nAddress);
            strFrame.append(oUpdate.strNew, nStart + nFirst, nEnd - nFirst);
            if (const int nStatus =
                    Change(fmt::format("program flash at 0x{:x}", nAddress), strFrame, LIMIT_PROGRAM);
                nStatus != 0)
                return nStatus;
            m_nProgrammed += nEnd - nFirst;
        }
        oUpdate.nDone += static_cast<std::uint64_t>(
            std::count(oUpdate.strIsData.begin() + static_cast<std::ptrdiff_t>(nStart),
                       oUpdate.strIsData.begin() + static_cast<std::ptrdiff_t>(nStart) + nSize, '\1'));
        oUpdate.oProgress.Update(oUpdate.nDone);
    }
    return eStatusDone;
}

int CSpiFlash::Verify(const CImage& oImage, CVerify& oVerify)
{
    CImage oDevice;
    const int nStatus = Read("Verifying", oImage.GetSpans(READ_HOLE), oDevice);
    if (nStatus == 0)
        oVerify.Compare(oDevice, oImage);
    return nStatus;
}
