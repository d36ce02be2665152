// What the library is measured against: bare sockets, once with everything on one thread, once with a second
// thread that receives.
#ifndef QUORVEL_BENCH_LINKS_H
#define QUORVEL_BENCH_LINKS_H

#include "Peer.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
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

// The calling thread sends and sleeps until another thread, which sits in recv, hands the answer over: the
// least that a library which receives on a thread of its own can do.
class CHandOverLink : public CPlainLink
{
  public:
    CHandOverLink(const CPeer& oPeer, std::size_t nDataLen);
    ~CHandOverLink() override;

    bool Exchange() override;

  private:
    std::mutex m_oMutex;
    std::condition_variable m_oCondition;
    bool m_bArrived = false;
    bool m_bLost = false;
    std::thread m_oThread;
};

#endif
