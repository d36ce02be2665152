// The value arrays of the test system's I/O, power-supply and relay boxes: 16-bit numbers without a count.
#ifndef QUORVEL_VALUE_ARRAY_H
#define QUORVEL_VALUE_ARRAY_H

#include "Command.h"

namespace NValueArray
{

// Sends nCount values.
inline int Set(CCommand oCommand, unsigned short nCmdCode, const unsigned short* pValues,
               unsigned char nCount)
{
    return Guarded([&] { return oCommand.Exchange(nCmdCode, ToData(pValues, nCount)); });
}

// Stores the values that came, at most nCount. Half a value at the end is ignored; nothing is stored when the
// gateway reports an error.
inline int Get(CCommand oCommand, unsigned short nCmdCode, unsigned short* pValues, unsigned char nCount)
{
    const int nRC = oCommand.Exchange(nCmdCode);
    const CDataReader oData = oCommand.Data();
    for (std::size_t i = 0; nRC == 0 && pValues != nullptr && i < nCount && 2 * i + 2 < oData.GetLength();
         ++i)
        pValues[i] = oData.Word(1 + 2 * i);
    return nRC;
}

} // namespace NValueArray

#endif
