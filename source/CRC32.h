// The CRC-32 of files sent to a test system: reflected, polynomial 0x04C11DB7, register starting at all ones,
// result inverted.
#ifndef QUORVEL_CRC32_H
#define QUORVEL_CRC32_H

#include <cstddef>

class CCRC32
{
  public:
    void Add(const char* pData, std::size_t nLen);
    unsigned int Get() const { return ~m_nRegister; }

  private:
    unsigned int m_nRegister = 0xFFFFFFFFU;
};

#endif
