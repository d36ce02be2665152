#include "QuorvelClientTestSystemPWR.h"

#include "ValueArray.h"

namespace
{

constexpr const char* UNIT = "source/QuorvelClientTestSystemPWR";

} // namespace

CQuorvelClientTestSystemPWR::CQuorvelClientTestSystemPWR(int nTimeout)
    : CQuorvelClient(eDeviceTestSystemPWR, static_cast<unsigned int>(nTimeout))
{
    SetOwnClass(typeid(CQuorvelClientTestSystemPWR));
}

CQuorvelClientTestSystemPWR::~CQuorvelClientTestSystemPWR()
{
    StopReception();
}

int CQuorvelClientTestSystemPWR::Open()
{
    return CQuorvelClient::Open();
}

int CQuorvelClientTestSystemPWR::SetValue(unsigned short* pValues, unsigned char nCount)
{
    return NValueArray::Set(CCommand(*this, UNIT, 4, "SET VALUE requested to "), 0x0C10, pValues, nCount);
}

int CQuorvelClientTestSystemPWR::GetValue(unsigned short* pValues, unsigned char nCount)
{
    return NValueArray::Get(CCommand(*this, UNIT, 4, "GET VALUE requested to "), 0x0C11, pValues, nCount);
}
