#include "Image.h"

#include "File.h"
#include "Text.h"

#include <algorithm>

std::uint64_t CImage::GetSize() const
{
    std::uint64_t nSize = 0;
    for (const SRange& oRange : m_aoRanges)
        nSize += oRange.strBytes.size();
    return nSize;
}

void CImage::Set(std::uint64_t nAddress, std::string_view strBytes)
{
    if (strBytes.empty())
        return;
    // The ranges that touch the new one become one with it.
    const std::uint64_t nEnd = nAddress + strBytes.size();
    const auto itFirst = std::find_if(m_aoRanges.begin(), m_aoRanges.end(),
                                      [&](const SRange& oRange) { return oRange.GetLast() + 1 >= nAddress; });
    auto itLast = itFirst;
    while (itLast != m_aoRanges.end() && itLast->nAddress <= nEnd)
        ++itLast;
    if (itFirst == itLast) {
        m_aoRanges.insert(itFirst, SRange{nAddress, std::string(strBytes)});
        return;
    }
    SRange oMerged = std::move(*itFirst);
    if (nAddress < oMerged.nAddress) {
        oMerged.strBytes.insert(0, oMerged.nAddress - nAddress, '\0');
        oMerged.nAddress = nAddress;
    }
    const SRange& oBack = itLast - itFirst == 1 ? oMerged : *(itLast - 1);
    oMerged.strBytes.resize(std::max(nEnd, oBack.GetLast() + 1) - oMerged.nAddress);
    for (auto it = itFirst + 1; it != itLast; ++it)
        oMerged.strBytes.replace(it->nAddress - oMerged.nAddress, it->strBytes.size(), it->strBytes);
    oMerged.strBytes.replace(nAddress - oMerged.nAddress, strBytes.size(), strBytes);
    *itFirst = std::move(oMerged);
    m_aoRanges.erase(itFirst + 1, itLast);
}

int CImage::Load(const CTool& oTool, const std::string& strPath, CQuorvelHexfile::EType eType)
{
    std::string strContent;
    if (const int nStatus = ReadFile(oTool, strPath, strContent); nStatus != 0)
        return nStatus;
    return Parse(oTool, strPath == "-" ? "standard input" : strPath, std::move(strContent), eType);
}

int CImage::Parse(const CTool& oTool, const std::string& strName, std::string strContent,
                  CQuorvelHexfile::EType eType, bool bTolerant)
{
    if (strContent.empty())
        return oTool.Fail(eStatusFile, strName + ": the file is empty");
    m_aoRanges.clear();
    m_eType = eType;
    if (eType == CQuorvelHexfile::eTypeAuto)
        m_eType = strContent[0] == ':'   ? CQuorvelHexfile::eTypeIntel
                  : strContent[0] == 'S' ? CQuorvelHexfile::eTypeMotorola
                                         : CQuorvelHexfile::eTypeBinary;
    if (m_eType == CQuorvelHexfile::eTypeBinary) {
        m_aoRanges.push_back({0, std::move(strContent)});
        return eStatusDone;
    }
    // Line by line, so that a fault can be told with its line, and standard input be read.
    CQuorvelHexfile oReader;
    CQuorvelHexfile::CByteMap oMap;
    unsigned nBase = 0;
    unsigned nLine = 0;
    int nStatus = eStatusDone;
    std::string strLine;
    for (std::size_t nStart = 0; nStart < strContent.size();) {
        std::size_t nEnd = strContent.find('\n', nStart);
        nEnd = nEnd == std::string::npos ? strContent.size() : nEnd;
        strLine.assign(strContent, nStart, nEnd - nStart);
        nStart = nEnd + 1;
        ++nLine;
        const unsigned nResult = m_eType == CQuorvelHexfile::eTypeIntel
                                     ? oReader.AnalizeLineIntel(strLine, oMap, nBase)
                                     : oReader.AnalizeLineMotorola(strLine, oMap);
        if (nResult == CQuorvelHexfile::eResultOk)
            continue;
        const char* const pFault = nResult == CQuorvelHexfile::eResultRecordType
                                       ? "a record of an unknown type"
                                   : nResult == CQuorvelHexfile::eResultChecksum ? "wrong checksum"
                                                                                 : "no complete record";
        if (nResult == CQuorvelHexfile::eResultRecordType)
            CTool::Warn(fmt::format("{}:{}: {}, left out: {}", strName, nLine, pFault, Quote(strLine)));
        else if (bTolerant && nResult == CQuorvelHexfile::eResultChecksum)
            CTool::Warn(fmt::format("{}:{}: {}: {}", strName, nLine, pFault, Quote(strLine)));
        else
            nStatus =
                oTool.Fail(eStatusFile, fmt::format("{}:{}: {}: {}", strName, nLine, pFault, Quote(strLine)));
    }
    std::vector<CQuorvelHexfile::SMemoryBlock*> apBlocks;
    oMap.ToMemoryBlocks(apBlocks);
    for (const CQuorvelHexfile::SMemoryBlock* const pBlock : apBlocks) {
        m_aoRanges.push_back({pBlock->nAddress, std::string(pBlock->pData, pBlock->nLength)});
        delete pBlock;
    }
    return nStatus;
}
