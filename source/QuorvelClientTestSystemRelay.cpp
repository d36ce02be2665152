#include "QuorvelClientTestSystemRelay.h"

#include "ValueArray.h"

namespace
{

constexpr const char* UNIT = "source/QuorvelClientTestSystemRelay";

} // namespace

CQuorvelClientTestSystemRelay::CQuorvelClientTestSystemRelay(int nTimeout)
    : CQuorvelClient(eDeviceTestSystemRelay, static_cast<unsigned int>(nTimeout))
{
    SetOwnClass(typeid(CQuorvelClientTestSystemRelay));
}

CQuorvelClientTestSystemRelay::~CQuorvelClientTestSystemRelay()
{
    StopReception();
}

int CQuorvelClientTestSystemRelay::Open()
{
    return CQuorvelClient::Open();
}

int CQuorvelClientTestSystemRelay::SetRelay(unsigned char nRelay, bool bOn)
{
    // The text of the value commands: log readers rely on it.
    CCommand oCommand(*this, UNIT, 4, "SET VALUE requested to ");
    return oCommand.Exchange(0x1112, {ToByte(nRelay), ToByte(bOn ? 1 : 0)});
}

int CQuorvelClientTestSystemRelay::SetPower(unsigned short* pValues, unsigned char nCount)
{
    return NValueArray::Set(CCommand(*this, UNIT, 4, "SET POWER requested to "), 0x1120, pValues, nCount);
}

int CQuorvelClientTestSystemRelay::GetPower(unsigned short* pValues, unsigned char nCount)
{
    return NValueArray::Get(CCommand(*this, UNIT, 4, "GET POWER requested to "), 0x1121, pValues, nCount);
}
