// Ctrl-C and its kin, for programs whose threads wait in the library.
#ifndef QUORVEL_TOOL_INTERRUPT_H
#define QUORVEL_TOOL_INTERRUPT_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>

/**
 * Takes SIGINT, SIGTERM and SIGHUP, those that were not ignored when the program started: notes the signal at once,
 * and on a thread of its own ends what the program waits for, so that it ends by itself. What a program that does
 * not do so has coming depends on what it is doing, see EEnding.
 */
class CInterrupt
{
  public:
    /// What a signal does to the program.
    enum EEnding {
        eAtOnce,  ///< ends it: there is nothing to be told or to be put in order
        eSoon,    ///< ends it if it has not ended by itself within GRACE
        eByItself ///< leaves the end to the program, however long that takes
    };

    /// What a program has to end by itself: to clear away, and to print what it has.
    static constexpr std::chrono::milliseconds GRACE{250};

    CInterrupt() = default;
    /// Ends the thread; signals do nothing from now on.
    ~CInterrupt();
    CInterrupt(const CInterrupt&) = delete;
    CInterrupt& operator=(const CInterrupt&) = delete;

    /// Takes the signals from now on.
    void Start();

    /// @return the first signal that came, or 0
    int GetSignal() const { return m_nSignal; }

    /**
     * Waits.
     * @param oTime how long
     * @return false, at once, when a signal came
     */
    bool Wait(std::chrono::nanoseconds oTime);

    /**
     * Reads one byte. A byte that was there before a signal came does not count either when it is read after it.
     * @param nDescriptor from where
     * @return false at the end of the input, at an error, and at once when a signal came
     */
    bool Read(int nDescriptor, char& cByte);

    /**
     * Sets what is called when a signal comes, and again and again until the program has ended; an empty function:
     * nothing. Returns when the old one is not running.
     */
    void SetAction(std::function<void()> fnAction);

    /// Adds a file that must not stay behind.
    void AddPartialFile(const std::string& strPath);

    /// The file is complete, or gone.
    void RemovePartialFile(const std::string& strPath);

    /// As long as it lives, a signal ends the program in this way; within a scope of eByItself, in that one.
    class CScope
    {
      public:
        CScope(CInterrupt& oInterrupt, EEnding eEnding)
            : m_oInterrupt(oInterrupt), m_eBefore(oInterrupt.m_eEnding)
        {
            if (m_eBefore != eByItself)
                oInterrupt.m_eEnding = eEnding;
        }
        ~CScope() { m_oInterrupt.m_eEnding = m_eBefore; }
        CScope(const CScope&) = delete;
        CScope& operator=(const CScope&) = delete;

      private:
        CInterrupt& m_oInterrupt;
        EEnding m_eBefore;
    };

  private:
    static void Take(int nSignal);
    void Watch();

    std::atomic<int> m_nSignal{0};
    std::atomic<EEnding> m_eEnding{eSoon};
    int m_nWake = -1;    // readable when a signal came, or at the end
    std::mutex m_oMutex; // guards what follows
    std::condition_variable m_oCondition;
    bool m_bEnd = false;
    std::set<std::string> m_astrPartialFiles;
    std::mutex m_oMutexAction; // held while the action runs
    std::function<void()> m_fnAction;
    std::thread m_oThread;
};

#endif
