// The other side of every measurement: a process of its own, so that its threads and its memory do not count.
#ifndef QUORVEL_BENCH_PEER_H
#define QUORVEL_BENCH_PEER_H

#include <sched.h>
#include <sys/types.h>

class CPeer
{
  public:
    enum EKind {
        eTelegram, // answers every telegram at once: its code confirmed, result byte 0, its data
        eModbus    // libmodbus' own server with a few registers
    };

    // Where the peer runs, seen from the measuring process. Waking a thread on another processor that has
    // gone to sleep costs several times as much as switching on one, so that leaving it to chance would
    // compare chances.
    enum EPlacement {
        eAnywhere, // both wherever the system likes
        eTogether, // both on one processor
        eApart     // each on a processor of its own, if there are two
    };

    // Starts the process and binds this one to its processor. There must be no other thread at this time.
    explicit CPeer(EKind eKind, EPlacement ePlacement = eAnywhere);
    ~CPeer();
    CPeer(const CPeer&) = delete;
    CPeer& operator=(const CPeer&) = delete;

    static constexpr const char* GetHost() { return "127.0.0.1"; }
    unsigned short GetPort() const { return m_nPort; }

  private:
    pid_t m_nProcess = -1;
    unsigned short m_nPort = 0;
    cpu_set_t m_oAllowed; // of this process, before
};

#endif
