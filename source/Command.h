// The standard command: trace, request, exchange, result. What every command of every client is made of.
#ifndef QUORVEL_COMMAND_H
#define QUORVEL_COMMAND_H

#include "DataReader.h"
#include "Guarded.h"
#include "QuorvelClient.h"

#include <algorithm>
#include <initializer_list>
#include <ios>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

class CCommand
{
  public:
    // The data of a request, in the order in which they follow each other.
    using CPieces = std::initializer_list<std::string_view>;

    // pText is traced with the gateway's address and what follows by operator<<.
    CCommand(CQuorvelClient& oClient, const char* pUnit, unsigned char nLevel, const char* pText,
             unsigned int nLine = __builtin_LINE());

    // Without a trace.
    CCommand(CQuorvelClient& oClient, const char* pUnit) : CCommand(oClient, pUnit, 0, "") {}

    // Adds to the trace text; costs nothing when nobody listens.
    template<class T>
    CCommand& operator<<(const T& value)
    {
        if (m_oText)
            *m_oText << value;
        return *this;
    }
    CCommand& operator<<(std::ios_base& (*fnFormat)(std::ios_base&))
    {
        if (m_oText)
            *m_oText << fnFormat;
        return *this;
    }

    // Sends the request and waits. The result is the exchange's, or else what the confirmation says.
    int Exchange(unsigned short nCmdCode, CPieces astrData, const unsigned int* pTimeout = nullptr);
    int Exchange(unsigned short nCmdCode, std::string_view strData = {})
    {
        return Exchange(nCmdCode, CPieces{strData});
    }

    // Traces the request and gives it the next telegram id, for those who send it themselves. May throw when
    // memory is used up.
    CQuorvelMsg Request(unsigned short nCmdCode, CPieces astrData);

    // Sends the request and does not wait.
    int Send(unsigned short nCmdCode, CPieces astrData, short& nID);

    // Waits for the confirmation of a request sent before.
    int Collect(unsigned short nCmdCode, short nID, unsigned int nLine = __builtin_LINE());

    // True when a good confirmation came, whatever result it carries.
    bool IsConfirmed() const { return m_bConfirmed; }

    // The confirmation's data; byte 0 is the result. Empty without a confirmation.
    CDataReader Data() const;

  private:
    int Take(int nRC, CQuorvelMsg* pCnf);

    CQuorvelClient& m_oClient;
    const char* m_pUnit;
    unsigned int m_nLine;
    unsigned char m_nLevel;
    bool m_bConfirmed = false;
    std::optional<std::ostringstream> m_oText;
    std::unique_ptr<CQuorvelMsg> m_pCnf;
};

// One byte of telegram data.
inline std::string ToByte(unsigned int nValue)
{
    return std::string(1, static_cast<char>(nValue & 0xFF));
}

// A caller's bytes as telegram data.
inline std::string_view ToData(const char* pData, std::size_t nLen)
{
    return pData != nullptr ? std::string_view(pData, nLen) : std::string_view();
}

// What fills requests up that have a length of their own.
inline std::string_view Zeros(std::size_t nCount)
{
    static constexpr char ZEROS[0xFFFF] = {}; // more than any request takes
    return {ZEROS, std::min(nCount, sizeof ZEROS)};
}

// A caller's numbers as telegram data.
template<class T>
std::string ToData(const T* pValues, std::size_t nCount)
{
    std::string strData;
    for (std::size_t i = 0; pValues != nullptr && i < nCount; ++i)
        strData += CQuorvelMsg::ToChar(pValues[i]);
    return strData;
}

#endif
