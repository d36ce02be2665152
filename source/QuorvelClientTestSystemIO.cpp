#include "QuorvelClientTestSystemIO.h"

#include "ValueArray.h"

namespace
{

constexpr const char* UNIT = "source/QuorvelClientTestSystemIO";

} // namespace

CQuorvelClientTestSystemIO::CQuorvelClientTestSystemIO(int nTimeout)
    : CQuorvelClient(eDeviceTestSystemIO, static_cast<unsigned int>(nTimeout))
{
    SetOwnClass(typeid(CQuorvelClientTestSystemIO));
}

CQuorvelClientTestSystemIO::~CQuorvelClientTestSystemIO()
{
    StopReception();
}

int CQuorvelClientTestSystemIO::Open()
{
    return CQuorvelClient::Open();
}

int CQuorvelClientTestSystemIO::SetPower(unsigned short* pValues, unsigned char nCount)
{
    return NValueArray::Set(CCommand(*this, UNIT, 4, "SET POWER requested to "), 0x0B20, pValues, nCount);
}

int CQuorvelClientTestSystemIO::GetPower(unsigned short* pValues, unsigned char nCount)
{
    return NValueArray::Get(CCommand(*this, UNIT, 4, "GET POWER requested to "), 0x0B21, pValues, nCount);
}

int CQuorvelClientTestSystemIO::SetValue(unsigned short* pValues, unsigned char nCount)
{
    return NValueArray::Set(CCommand(*this, UNIT, 4, "SET VALUE requested to "), 0x0B10, pValues, nCount);
}

int CQuorvelClientTestSystemIO::GetValue(unsigned short* pValues, unsigned char nCount)
{
    return NValueArray::Get(CCommand(*this, UNIT, 4, "GET VALUE requested to "), 0x0B11, pValues, nCount);
}
