#include "SimGatewayTestBox.h"

#include "QuorvelErrorMsg.h"

namespace
{

enum : unsigned char {
    eSetValue = 0x10,
    eGetValue = 0x11,
    eSetRelay = 0x12,
    eSetPower = 0x20,
    eGetPower = 0x21
};

constexpr unsigned char nRelays = 32;

const char* Name(int nKind)
{
    if (nKind == eDeviceTestSystemRelay)
        return "Relay";
    return nKind == eDeviceTestSystemIO ? "IO" : "PWR";
}

bool HasCommand(int nKind, unsigned char nCommand)
{
    switch (nCommand) {
    case eSetValue:
    case eGetValue:
        return nKind != eDeviceTestSystemRelay;
    case eSetPower:
    case eGetPower:
        return nKind != eDeviceTestSystemPWR;
    default:
        return nCommand == eSetRelay && nKind == eDeviceTestSystemRelay;
    }
}

} // namespace

CSimGatewayTestBox::CSimGatewayTestBox(int nKind) : CSimGateway(nKind, Name(nKind)) {}

CSimGatewayTestBox::~CSimGatewayTestBox()
{
    Stop();
}

void CSimGatewayTestBox::PowerOn()
{
    CSimGateway::PowerOn();
    m_astrArrays.fill(std::string(2 * nChannels, '\0'));
}

SSimAnswer CSimGatewayTestBox::Execute(const SSimRequest& oRequest)
{
    if (!HasCommand(GetKind(), oRequest.nCommand))
        return CSimGateway::Execute(oRequest);
    std::string& strArray = m_astrArrays[oRequest.nCommand < eSetPower ? 0 : 1];
    switch (oRequest.nCommand) {
    case eSetRelay:
        return SetRelay(oRequest.strData);
    case eGetValue:
    case eGetPower:
        return SSimAnswer(eSimResultOk, strArray);
    default:
        if (oRequest.strData.size() % 2 != 0 || oRequest.strData.size() > strArray.size())
            return SSimAnswer(eSimResultFailed);
        strArray.replace(0, oRequest.strData.size(), oRequest.strData);
        return SSimAnswer();
    }
}

SSimAnswer CSimGatewayTestBox::SetRelay(const std::string& strData)
{
    if (strData.size() != 2 || static_cast<unsigned char>(strData[0]) >= nRelays ||
        static_cast<unsigned char>(strData[1]) > 1)
        return SSimAnswer(eSimResultFailed);
    const unsigned nBit = 1U << static_cast<unsigned char>(strData[0]);
    m_nOutputs = strData[1] != 0 ? m_nOutputs | nBit : m_nOutputs & ~nBit;
    return SSimAnswer();
}
