// The data of a received telegram, read by offset. Whatever the other side sent, nothing outside the data is
// touched: missing bytes count as 0.
#ifndef QUORVEL_DATA_READER_H
#define QUORVEL_DATA_READER_H

#include "ByteOrder.h"

#include <algorithm>
#include <cstring>
#include <string_view>

class CDataReader
{
  public:
    explicit CDataReader(std::string_view strData) : m_strData(strData) {}

    std::size_t GetLength() const { return m_strData.size(); }

    unsigned char Byte(std::size_t nOffset) const
    {
        return nOffset < m_strData.size() ? static_cast<unsigned char>(m_strData[nOffset]) : 0;
    }
    unsigned short Word(std::size_t nOffset) const { return Number<unsigned short>(nOffset); }
    unsigned int DWord(std::size_t nOffset) const { return Number<unsigned int>(nOffset); }

    void Copy(std::size_t nOffset, void* pTo, std::size_t nCount) const
    {
        if (pTo == nullptr || nCount == 0)
            return;
        const std::size_t nHave =
            nOffset < m_strData.size() ? std::min(m_strData.size() - nOffset, nCount) : 0;
        if (nHave > 0)
            std::memcpy(pTo, m_strData.data() + nOffset, nHave);
        if (nHave < nCount)
            std::memset(static_cast<char*>(pTo) + nHave, 0, nCount - nHave);
    }

    // How many of the bytes from an offset on go to a caller's buffer. In 16 bits: a confirmation without data
    // counts as a full one, whose missing bytes are zeros.
    unsigned short CopyLength(std::size_t nOffset, unsigned short nBufLen) const
    {
        return std::min(static_cast<unsigned short>(m_strData.size() - nOffset), nBufLen);
    }

    // Everything from an offset on.
    std::string_view Rest(std::size_t nOffset) const
    {
        return nOffset < m_strData.size() ? m_strData.substr(nOffset) : std::string_view();
    }

  private:
    template<class T>
    T Number(std::size_t nOffset) const
    {
        if (nOffset + sizeof(T) <= m_strData.size())
            return Decode<T>(m_strData.data() + nOffset);
        T nValue = 0;
        for (std::size_t i = sizeof(T); i-- > 0;)
            nValue = static_cast<T>((nValue << 8) | Byte(nOffset + i));
        return nValue;
    }

    std::string_view m_strData;
};

#endif
