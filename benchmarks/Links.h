// What the library is measured against: bare sockets with everything on one thread.
#ifndef QUORVEL_BENCH_LINKS_H
#define QUORVEL_BENCH_LINKS_H

#include "Peer.h"

#include <string>
#include <vector>

// A request, its answer, and the socket they travel on. The calling thread sends and receives.
class CPlainLink
{
  public:
    // The telegram that the library sends for a transfer of that many bytes.
    CPlainLink(const CPeer& oPeer, std::size_t nDataLen);
    virtual ~CPlainLink();
    CPlainLink(const CPlainLink&) = delete;
    CPlainLink& operator=(const CPlainLink&) = delete;

    // One request and its whole answer.
    virtual bool Exchange();

  protected:
    bool Send() const;
    bool Receive();

    int m_nSocket;
    std::string m_strRequest;
    std::vector<char> m_anAnswer;
};

#endif
