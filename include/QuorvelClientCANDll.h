/**
 * @file QuorvelClientCANDll.h
 * @brief The CAN client that receives: queues and callbacks for CAN frames and CANopen events.
 */
#ifndef QUORVEL_CLIENT_CAN_DLL_H
#define QUORVEL_CLIENT_CAN_DLL_H

#include "QuorvelClientCAN.h"
#include "support/ZelMutex.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>

/**
 * A bounded queue of telegrams of one kind, oldest first. All functions may be called from any thread.
 *
 * It keeps the telegrams' data, which is all that tells one from another, in blocks of many: that takes little
 * memory, and none is allocated for a single telegram.
 */
class QUORVEL_API CQuorvelMsgQueue
{
  public:
    CQuorvelMsgQueue() = default; ///< an empty queue
    ~CQuorvelMsgQueue();          ///< deletes what is queued
    CQuorvelMsgQueue(const CQuorvelMsgQueue&) = delete;
    CQuorvelMsgQueue& operator=(const CQuorvelMsgQueue&) = delete;

    /**
     * Sets how many telegrams fit, 1000 at first. What is already queued stays.
     * @param nMaxSize the number
     */
    void SetMaxSize(unsigned int nMaxSize) { m_nMaxSize = nMaxSize; }

    /**
     * Appends a copy of a telegram, unless the queue is full.
     * @param oMsg     the telegram
     * @param bEnabled false drops the telegram; looked at together with the queue, so that a Clear after
     *                 setting it to false is final
     */
    void Append(const CQuorvelMsg& oMsg, const std::atomic<bool>& bEnabled);

    /**
     * Takes the oldest telegram out.
     * @param strData receives its data
     * @return how many telegrams are left; -1, and strData is left alone, when there was none
     */
    int Take(std::string& strData);

    /**
     * The same without taking memory for a short telegram.
     * @param acShort memory for the data of a telegram that fits
     * @param strLong memory for the data of a longer one
     * @param strData receives the data, which lie in one or the other
     * @return as above
     */
    int Take(std::array<char, 128>& acShort, std::string& strLong, std::string_view& strData);

    /** Removes all telegrams. */
    void Clear();

  protected:
    std::atomic<unsigned int> m_nMaxSize{1000}; ///< how many telegrams fit

  private:
    struct SBlock;

    // A lock that is hardly ever met closed and then opens at once.
    class CLock
    {
      public:
        void lock()
        {
            while (m_bLocked.exchange(true, std::memory_order_acquire))
                Wait();
        }
        void unlock() { m_bLocked.store(false, std::memory_order_release); }

      private:
        static void Wait();

        std::atomic<bool> m_bLocked{false};
    };

    void AppendBlock(std::size_t nSize);
    template<class FCopy>
    int TakeBy(FCopy fnCopy);

    // A list of blocks: the receive thread appends to the last one, readers take from the first, and neither
    // ever waits for the other. m_nAppended tells readers what is there. What each side writes lies on cache
    // lines of its own.
    alignas(64) CLock m_oLockIn;   // one appends at a time; guards the next three
    SBlock* m_pLast = nullptr;     // null before the first telegram and after Clear
    std::size_t m_nEnd = 0;        // how much of it is used
    unsigned int m_nTakenSeen = 0; // m_nTaken some time ago

    alignas(64) std::atomic<unsigned int> m_nAppended{0}; // telegrams ever appended

    alignas(64) CLock m_oLockOut;          // one takes at a time; guards the rest
    std::atomic<unsigned int> m_nTaken{0}; // telegrams ever taken or cleared
    SBlock* m_pFirst = nullptr;            // but set by whoever appends when m_pLast was null
    std::size_t m_nPos = 0;                // where its oldest telegram starts
};

/**
 * The CAN gateway with its receiving side: CAN frames and CANopen events go to callbacks, or else into queues
 * that reader functions empty.
 *
 * For each of the six kinds (CAN frame, PDO, SYNC, EMCY, GUARD, UNDEFINED): with a callback set, it is called;
 * otherwise, with queueing on (SetMaxSizePerQueue), the telegram is queued; otherwise it is dropped. docs/can.md
 * has the telegrams' layouts.
 *
 * Callbacks run on the receive thread with no lock held; docs/threads.md says what they may do. While one runs,
 * nothing else is received from this gateway, confirmations included. The data pointers are never null, and valid
 * during the call, for the whole length given; where the telegram was shorter, zeros follow. An exception that leaves a
 * callback is caught and traced, and reception goes on. nHandle is the device handle given to the constructor.
 * nSeconds and nMicroSeconds are the gateway's time stamp, 0 and 0 without one.
 *
 * Setters and readers may be called from any thread at any time, also from within callbacks. A setter does not
 * wait for a running callback, and takes effect with the next telegram.
 */
class QUORVEL_API CQuorvelClientCANDll : public CQuorvelClientCAN
{
  public:
    /** @name Callbacks */
    ///@{
    /** A CAN frame; nLen 0 to 64, nFlags 0 to 255. */
    using FFrame = void (*)(unsigned int nIdentifier, const char* pData, int nLen, int nFlags, int nHandle);
    /** A CAN frame with its time stamp. */
    using FFrameEx = void (*)(unsigned int nIdentifier, const char* pData, int nLen, int nFlags, int nHandle,
                              int nSeconds, int nMicroSeconds);
    /** A PDO; nLen as received, 0 to 255. The last two arguments are 0. */
    using FPDO = void (*)(unsigned char nNodeID, unsigned char nPDOType, unsigned char nLen,
                          const char* pData, int nHandle, int, int);
    /** SYNC, with the value byte of the gateway. The last two arguments are 0. */
    using FSYNC = void (*)(unsigned char nValue, int nHandle, int, int);
    /** An emergency; pData has five bytes. For nErrorCode see CANopenGetEMCY. The last two arguments are 0. */
    using FEMCY = void (*)(unsigned char nNodeID, unsigned short nErrorCode, unsigned char nErrorRegister,
                           const unsigned char* pData, int nHandle, int, int);
    /** Node guarding or heartbeat. The last two arguments are 0. */
    using FGUARD = void (*)(unsigned char nNodeID, unsigned char nState, int nHandle, int, int);
    /** A frame that the CANopen master could not assign; nByte0 and nByte1 are the identifier's. */
    using FUNDEFINED = void (*)(int nIdentifier, unsigned char nByte0, unsigned char nByte1,
                                unsigned char nLen, const char* pData, int nHandle, int nSeconds,
                                int nMicroSeconds);
    ///@}

    /**
     * A client that is not connected yet, without callbacks, queueing off.
     * @param nHandle  device handle, passed to every callback
     * @param nTimeout default time-out in milliseconds, see CQuorvelClient
     */
    CQuorvelClientCANDll(int nHandle, int nTimeout);

    /** Disconnects and waits until a running callback has returned. */
    ~CQuorvelClientCANDll() override;

    /**
     * Sets the callback for CAN frames and clears the one with time stamps.
     * @param pCallback the function; null for none
     */
    void SetCallback(FFrame pCallback);

    /**
     * Sets the callback for CAN frames with time stamps and clears the one without.
     * @param pCallback the function; null for none
     */
    void SetCallbackEx(FFrameEx pCallback);

    /** Sets the five CANopen callbacks; null for none. */
    void CANopenSetCallback(FPDO pPDO, FSYNC pSYNC, FEMCY pEMCY, FGUARD pGUARD, FUNDEFINED pUNDEFINED);

    /**
     * Switches queueing on or off, for all six kinds.
     * @param nSize how many telegrams each queue holds; when it is full, the newest are dropped. What is
     *              queued already stays. 0 switches queueing off and empties all queues.
     */
    void SetMaxSizePerQueue(unsigned int nSize);

    /** @name Readers
     * Each takes the oldest telegram out of its queue. Output pointers may be null. They return how many
     * telegrams are left, or -1, with nothing written, when there was none. */
    ///@{

    /**
     * Reads a CAN frame.
     * @param pIdentifier   receives the identifier
     * @param pData         receives the frame data and, when there is one, the time stamp's 8 bytes behind it:
     *                      must hold 72 bytes
     * @param pLen          receives the length of the frame data, 0 to 64, without the time stamp
     * @param pFlags        receives the flags, -128 to 127
     * @param pSeconds      receives the time stamp's seconds
     * @param pMicroSeconds receives the time stamp's microseconds
     * @return telegrams left, or -1
     */
    int CANGetMessage(int* pIdentifier, char* pData, unsigned char* pLen, int* pFlags, int* pSeconds,
                      int* pMicroSeconds);

    /**
     * Reads a PDO.
     * @param pNodeID  receives the node
     * @param pPDOType receives which of its PDOs
     * @param pLen     receives the length, at most 8
     * @param pData    receives that many bytes
     * @return telegrams left, or -1
     */
    int CANopenGetPDO(unsigned char* pNodeID, unsigned char* pPDOType, unsigned char* pLen, char* pData);

    /**
     * Reads a SYNC.
     * @param pValue receives its value byte
     * @return telegrams left, or -1
     */
    int CANopenGetSYNC(unsigned char* pValue);

    /**
     * Reads an emergency.
     * @param pNodeID        receives the node
     * @param pErrorCode     receives the error code; when its low byte is 0x80 or more, its high byte is 0xFF
     *                       whatever was sent
     * @param pErrorRegister receives the error register
     * @param pData          receives the five bytes of the manufacturer
     * @return telegrams left, or -1
     */
    int CANopenGetEMCY(unsigned char* pNodeID, unsigned short* pErrorCode, unsigned char* pErrorRegister,
                       unsigned char* pData);

    /**
     * Reads a node guarding or heartbeat event.
     * @param pNodeID receives the node
     * @param pState  receives its state
     * @return telegrams left, or -1
     */
    int CANopenGetGUARD(unsigned char* pNodeID, unsigned char* pState);

    /**
     * Reads a frame that the CANopen master could not assign.
     * @param pIdentifier   receives the identifier
     * @param pByte0        receives the identifier's lowest byte
     * @param pByte1        receives the next one
     * @param pLen          receives the length of the frame data, at most 8
     * @param pData         receives all of the frame data and the time stamp behind it: must hold 255 bytes
     * @param pSeconds      receives the time stamp's seconds
     * @param pMicroSeconds receives the time stamp's microseconds
     * @return telegrams left, or -1
     */
    int CANopenGetUndefined(int* pIdentifier, unsigned char* pByte0, unsigned char* pByte1,
                            unsigned char* pLen, char* pData, int* pSeconds, int* pMicroSeconds);
    ///@}

    using CQuorvelClientCAN::GetTime;

    /**
     * Separates the frame data of an indication from the time stamp behind it.
     * @param nFlags the frame's flags; bit 2 announces a time stamp
     * @param pData  frame data and time stamp; must not be null unless nLen is 0
     * @param nLen   number of bytes
     * @param oTime  receives the time stamp; 0 without one; left alone when one is announced but not there
     * @return number of bytes of frame data; 0 when a time stamp is announced but not there
     */
    static unsigned short GetTime(unsigned char nFlags, const char* pData, unsigned short nLen,
                                  timeval& oTime);

    /** Hands an indication, never null, to its callback or queue; called on the receive thread. @return false */
    bool DataIndRespond(CQuorvelMsg* pMsg) override;

  protected:
    std::atomic<FFrame> m_pFrame{nullptr};         ///< null, or m_pFrameEx is: see SetCallback
    std::atomic<FFrameEx> m_pFrameEx{nullptr};     ///< null, or m_pFrame is
    std::atomic<FPDO> m_pPDO{nullptr};             ///< may be null
    std::atomic<FSYNC> m_pSYNC{nullptr};           ///< may be null
    std::atomic<FEMCY> m_pEMCY{nullptr};           ///< may be null
    std::atomic<FGUARD> m_pGUARD{nullptr};         ///< may be null
    std::atomic<FUNDEFINED> m_pUNDEFINED{nullptr}; ///< may be null
    int m_nHandle;                                 ///< device handle, passed to every callback
    std::atomic<bool> m_bQueueing{false};          ///< whether what has no callback is queued
    CQuorvelMsgQueue m_oQueuePDO;                  ///< PDOs
    CQuorvelMsgQueue m_oQueueSYNC;                 ///< SYNCs
    CQuorvelMsgQueue m_oQueueEMCY;                 ///< emergencies
    CQuorvelMsgQueue m_oQueueGUARD;                ///< node guarding and heartbeats
    CQuorvelMsgQueue m_oQueueUNDEFINED;            ///< frames that the CANopen master could not assign
    CQuorvelMsgQueue m_oQueueFrame;                ///< CAN frames

  private:
    void FrameInd(const CQuorvelMsg& oMsg);
    void PDOInd(const CQuorvelMsg& oMsg);
    void SYNCInd(const CQuorvelMsg& oMsg);
    void EMCYInd(const CQuorvelMsg& oMsg);
    void GUARDInd(const CQuorvelMsg& oMsg);
    void UNDEFINEDInd(const CQuorvelMsg& oMsg);

    CZelMutex m_oMutexSetters;                    // one setter at a time; callbacks run without it
    std::atomic<unsigned int> m_nFrameChanges{0}; // counts changes of m_pFrame and m_pFrameEx
};

#endif
