#include "QuorvelClientAD.h"

#include "Command.h"

#include <stdexcept>

namespace
{

constexpr const char* UNIT = "source/QuorvelClientAD";

} // namespace

CQuorvelClientAD::CQuorvelClientAD(int nTimeout)
    : CQuorvelClient(eDeviceAD, static_cast<unsigned int>(nTimeout))
{
    SetOwnClass(typeid(CQuorvelClientAD));
}

CQuorvelClientAD::~CQuorvelClientAD()
{
    StopReception();
}

int CQuorvelClientAD::ReadDigital(unsigned int& nInputs, unsigned int& nOutputs)
{
    return BaseReadDigital(nInputs, nOutputs);
}

int CQuorvelClientAD::WriteDigital(unsigned int nOutputs)
{
    return BaseWriteDigital(nOutputs);
}

int CQuorvelClientAD::ReadDigitalInput(unsigned int& nInput0, unsigned int& nInput1, unsigned int& nInput2)
{
    unsigned int nOutputs = 0;
    const int nRC = BaseReadDigital(nInput0, nOutputs);
    if (nRC != 0)
        return nRC;
    const unsigned int nInputs = nInput0;
    nInput1 = (nInputs >> 8) & 0xFF;
    nInput2 = (nInputs >> 16) & 0xFF;
    nInput0 = nInputs & 0xFF;
    return 0;
}

int CQuorvelClientAD::Read(std::vector<unsigned int>& aoValues)
{
    CCommand oCommand(*this, UNIT, 8, "READ requested to ");
    const int nRC = oCommand.Exchange(0x0730);
    if (!oCommand.IsConfirmed())
        return nRC;
    const CDataReader oData = oCommand.Data();
    if (oData.GetLength() == 0)
        throw std::out_of_range("confirmation without data"); // existing applications catch it
    // Values that come with an error are passed on too: existing applications rely on it.
    return Guarded([&] {
        for (std::size_t i = 0; i < (oData.GetLength() - 1) / 4; ++i)
            aoValues.push_back(oData.DWord(1 + 4 * i));
        return nRC;
    });
}
