/**
 * @file QuorvelClient.h
 * @brief The base class of every gateway client: connection, telegram exchange, common commands.
 */
#ifndef QUORVEL_CLIENT_H
#define QUORVEL_CLIENT_H

#include "DeviceInfo.h"
#include "QuorvelErrorMsg.h"
#include "QuorvelExport.h"
#include "QuorvelMsg.h"
#include "support/ZelEvent.h"
#include "support/ZelIPConnection.h"
#include "support/ZelMutex.h"
#include "support/ZelTime.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <memory_resource>
#include <string>
#include <typeinfo>

/**
 * One gateway: its TCP connection, and the exchange of requests and confirmations over it.
 *
 * A client is constructed, connected (Connect), opened (Open), used, closed (Close) and destroyed. After
 * Close, or when the gateway is gone, Connect and Open may be called again on the same object.
 *
 * Results are the codes of QuorvelErrorMsg: 0 success; 0x00020000 to 0x000C0000 found by the library (socket
 * error, not connected, time-out, bad confirmation); anything else the gateway's own code with the device
 * kind in bits 8 to 15.
 *
 * When memory runs out, or a function that the application has overridden throws a std::exception, the result is
 * 0x000000FF; the request may have been sent, and the client can be used on.
 * Connect gives 0x00020000 then. Closing and destroying need no memory. A telegram that comes while there is none
 * for it is lost. Only constructors throw std::bad_alloc, ToMsg, DataInd and functions that return a text.
 *
 * Threads: every command may be called from any thread; several threads on one client are served one after
 * the other, in turn, and waiting for one's turn does not count against the time-out. Indications
 * (DataIndRespond) run on the receive thread with no lock held. They must not run commands that wait for a
 * confirmation, because the receive thread could not deliver it; sending without waiting, and closing, are
 * allowed. See docs/threads.md.
 *
 * Every derived class calls StopReception at the start of its destructor, so that no indication meets an object
 * that is half gone. A client must not be deleted from within its own indication; close it there instead.
 */
class QUORVEL_API CQuorvelClient
{
  public:
    /** The client's TCP connection: hands everything on to the client. */
    class QUORVEL_API CConnection : public CZelIPConnection
    {
      public:
        /** Forwards to the parent's ConInd. */
        void ConnectInd(bool bConnected) override;

        /** Forwards to the parent's DataInd. */
        void DataInd(const char* pData, unsigned short nLen) override;

        /**
         * Sets the client that receives the indications.
         * @param pParent the client, not owned; must outlive the connection. Null for none.
         */
        void SetParentClass(CQuorvelClient* pParent) { m_pParent = pParent; }

      protected:
        CQuorvelClient* m_pParent = nullptr; ///< not owned
    };

    /** One received confirmation that waits to be collected. */
    class QUORVEL_API CMessageItem
    {
      public:
        /** An item without telegram, of the time (0, 0). */
        CMessageItem() = default;

        /**
         * An item stored now.
         * @param pMsg the telegram, or null; the item owns it
         */
        explicit CMessageItem(CQuorvelMsg* pMsg);

        /** Deletes a telegram that is still held. */
        ~CMessageItem();
        CMessageItem(const CMessageItem&) = delete;
        CMessageItem& operator=(const CMessageItem&) = delete;

        /** @return the telegram, now the caller's to delete; null when it was taken before */
        CQuorvelMsg* PopMsg();

        /** @return the local time at which the telegram was stored */
        const CZelLocalTime& GetTime() const { return m_oTime; }

      protected:
        CQuorvelMsg* m_pMsg = nullptr; ///< owned; null once taken
        CZelLocalTime m_oTime;         ///< when it was stored
    };

    /**
     * A client that is not connected yet.
     * @param eDeviceType device kind
     * @param nTimeout    milliseconds for connecting, sending, waiting for a confirmation and disconnecting,
     *                    where no other is given; confirmations that nobody collects are kept for about ten
     *                    times as long. 0x80000000 and above do not wait for confirmations at all.
     */
    CQuorvelClient(EQuorvelDevice eDeviceType, unsigned int nTimeout);

    /** Disconnects, waits until a running indication has returned, and deletes uncollected confirmations. */
    virtual ~CQuorvelClient();
    CQuorvelClient(const CQuorvelClient&) = delete;
    CQuorvelClient& operator=(const CQuorvelClient&) = delete;

    /**
     * The logical opening after Connect: telegram ids start at 2.
     * @return 0
     */
    virtual int Open();

    /** @return the result of Disconnect */
    virtual int Close();

    /**
     * Sends one telegram without waiting for an answer, and without waiting for an exchange under way on
     * another thread. May be called from an indication. Exchanges send through it: an override may run commands of its
     * own on this client before or after it sends, but must not wait for another thread's.
     * @param oMsg the telegram; more than 65535 bytes in all are refused with 0x00020000
     * @return 0, or the code of the transport failure
     */
    virtual int SendMsg(const CQuorvelMsg& oMsg);

    /**
     * Entry point for a received telegram; called on the receive thread, or for a confirmation on a thread that waits for
     * one (see ReceiveWhileWaiting).
     * @param pData the telegram from its length bytes on; must not be null unless nLen is 0
     * @param nLen  number of bytes
     */
    virtual void DataInd(const char* pData, unsigned short nLen);

    /**
     * The connection is up or lost; called on the receive thread. Does nothing here.
     * @param bConnected the new state
     */
    virtual void ConInd(bool bConnected);

    /**
     * Handles an indication (a telegram that is no confirmation); called on the receive thread.
     * @param pMsg the telegram, never null
     * @return true when the function has taken ownership of pMsg; false here, and the telegram is deleted
     */
    virtual bool DataIndRespond(CQuorvelMsg* pMsg);

    /**
     * The result that a confirmation carries in its first data byte.
     * @param oCnf the confirmation
     * @return 0; the gateway's code with the device kind in bits 8 to 15; 0x000C0000 with the device kind
     * when there is no data byte
     */
    virtual int GetCnfRetCode(const CQuorvelMsg& oCnf);

    /**
     * Connects to a gateway.
     * @param pHost     IPv4 or IPv6 address or host name; null is not resolved
     * @param nPort     TCP port; 0 takes the kind's own, 4999 + kind (5099 for kind 0)
     * @param nProtocol protocol selector; every value opens TCP
     * @param bFlag     connect flag; both values open TCP
     * @return 0; 0x00020000 refused or not resolved; 0x00040000 no answer in time, or an indication of the former
     *         connection still runs; 0x00050000 another thread is connecting this client
     */
    int Connect(const char* pHost, unsigned short nPort, unsigned char nProtocol, bool bFlag);

    /**
     * Closes the connection. Nothing is delivered any more; what was sent arrives. Waits, at most the client's
     * time-out, for an indication that is running on the receive thread and until the gateway has acknowledged all that
     * was sent; called from within an indication it waits for neither.
     * @return 0; 0x00040000 when an indication still runs or something was not acknowledged (the connection is closed
     *         all the same)
     */
    int Disconnect();

    /**
     * The blocking exchange: sends a request and waits for the confirmation with its id.
     * @param oReq     the request
     * @param pCnf     receives the confirmation, which the caller must delete, whatever the result: a bad one
     *                 is handed over too. Untouched when sending fails, so set it to null before.
     * @param pTimeout milliseconds to wait; null takes the client's time-out; 0x80000000 and above do not
     * wait
     * @return 0; a transport failure; 0x00040000 no confirmation in time; 0x000A0000 its check byte is wrong;
     *         0x000B0000 its command code is not the request's. What the gateway made of the request is
     *         GetCnfRetCode's to tell.
     */
    int SendMsg(const CQuorvelMsg& oReq, CQuorvelMsg*& pCnf, const unsigned int* pTimeout);

    /**
     * The same exchange with the confirmation copied.
     * @param oReq     the request
     * @param oCnf     receives the confirmation if there is one
     * @param pTimeout as above
     * @return as above
     */
    int SendMsg(const CQuorvelMsg& oReq, CQuorvelMsg& oCnf, const unsigned int* pTimeout);

    /**
     * Waits for the confirmation with an id, then discards what nobody has collected for too long.
     * @param nMsgID   telegram id
     * @param pTimeout milliseconds; null takes the client's time-out; 0x80000000 and above do not wait
     * @return the confirmation, the caller's to delete; null when it did not come
     */
    CQuorvelMsg* WaitForMsg(short nMsgID, const unsigned int* pTimeout);

    /**
     * Ends the waiting of the exchange that is under way, from any thread: it returns 0x00040000 at once, and so does
     * every WaitForMsg. Does nothing when none is under way. An exchange that waits for its turn is not ended; a telegram
     * that the gateway does not take keeps its time-out. The connection stays, and a confirmation that comes late
     * is treated as after a time-out.
     */
    void CancelWait();

    /**
     * Takes a confirmation that is already there.
     * @param nMsgID telegram id
     * @return the confirmation, the caller's to delete; null when there is none
     */
    CQuorvelMsg* GetMsg(short nMsgID);

    /** Discards confirmations stored longer ago than time-out / 100 seconds (whole seconds, rounded down). */
    void RemoveOldMsgs();

    /**
     * Parses and traces a received telegram.
     * @param pData the telegram from its length bytes on; must not be null unless nLen is 0
     * @param nLen  number of bytes
     * @return a new telegram, the caller's to delete; null when the bytes are none
     */
    CQuorvelMsg* ToMsg(const unsigned char* pData, unsigned short nLen);

    /**
     * Turns a transport code (CZelIPBase::ETransportCode) into a result code.
     * @param nRC 1 gives 0, 7 gives 1, any other c gives c << 16
     * @return the result code
     */
    static int ConvertTCPRetCode(int nRC);

    /**
     * The text of a result code.
     * @param nRC result code
     * @return as QuorvelErrorMsg
     */
    static std::string GetErrorMsg(int nRC);

    /** @return the connection's state; 3 means connected */
    int GetConnectState() const { return m_oConnection.GetState(); }

    /** @return the connection */
    const CConnection& GetConnection() const { return m_oConnection; }

    /** @return the device kind given to the constructor */
    EQuorvelDevice GetDeviceType() const { return m_eDeviceType; }

    /**
     * For a client that is to go from within its own indication: closes the connection and has a function
     * called at the very end of the receive thread, where deleting this client is safe.
     * @param fnLast what is to be done; it may delete this client
     * @return false, and nothing happens, on any other thread
     */
    bool RunAtEndOfReception(std::function<void()> fnLast);

    /** @name Commands that every gateway understands
     * All return 0 or a result code, and wait at most the client's time-out. Outputs are written on success
     * only, except as stated. */
    ///@{

    /**
     * Has the gateway restart; the connection is lost soon afterwards.
     * @return result code
     */
    int Restart();

    /**
     * Reads the device information.
     * @param pInfo receives the record; cleared, except for the device kind, before the request. May be null.
     * @return result code
     */
    int Info(SQuorvelDeviceInfo* pInfo);

    /**
     * Reads the status text.
     * @param strStatus receives the text; left as it is when the gateway sends none
     * @return result code
     */
    int Status(std::string& strStatus);

    /**
     * Reads the digital lines.
     * @param nInputs  receives the input bits
     * @param nOutputs receives the output bits. Both are left as they are when the gateway sends too little.
     * @return result code
     */
    int BaseReadDigital(unsigned int& nInputs, unsigned int& nOutputs);

    /**
     * Sets the digital outputs.
     * @param nOutputs the output bits
     * @return result code
     */
    int BaseWriteDigital(unsigned int nOutputs);

    /**
     * Reads the analog values.
     * @param nInfo   receives the gateway's information word
     * @param pValues receives the values; must hold nCount of them. With null none is stored.
     * @param nCount  in: how many values fit; out: how many the gateway sent, which may be more than were
     *                stored; 0 on failure
     * @return result code
     */
    int ReadAnalog(unsigned int& nInfo, unsigned int* pValues, unsigned short& nCount);

    /**
     * Sets the analog outputs.
     * @param pValues the values; null sends none
     * @param nCount  how many; at most 16382 fit a telegram
     * @return result code
     */
    int WriteAnalog(const unsigned int* pValues, unsigned short nCount);
    ///@}

  protected:
    friend class CCommand;

    /** Closes the connection and waits until a running indication has returned, however long that takes. */
    void StopReception();

    /**
     * A thread that waits for a confirmation receives it itself, which is much faster than having it handed over by the
     * receive thread. For objects of the library's own classes that is so; a derived class says here that it wants
     * it, best in its constructor. Its DataInd, if it has one, is then called for a confirmation on the thread that waits
     * or on the receive thread, never on both at once. Indications (DataIndRespond) and ConInd stay on the receive
     * thread.
     */
    void ReceiveWhileWaiting() { m_bReceiveWhileWaiting = true; }

    /**
     * For the constructors of the library's classes: the object is of this class, if it is of none derived from it.
     * @param oClass the class
     */
    void SetOwnClass(const std::type_info& oClass) { m_pOwnClass = &oClass; }

    /** @return the next telegram id; 32767 is followed by -32768 */
    short TakeMsgID();

    /**
     * Judges what came back for a request, and traces a failure.
     * @param pCnf     the confirmation, or null
     * @param nCmdCode the request's command code
     * @param pUnit    the unit that traces; must not be null
     * @param nLine    its source line
     * @return 0, 0x00040000, 0x000A0000 or 0x000B0000
     */
    static int CheckCnf(const CQuorvelMsg* pCnf, unsigned short nCmdCode, const char* pUnit,
                        unsigned int nLine);

    /**
     * Traces the text and number of a failed exchange.
     * @param nRC   the result
     * @param pUnit the unit that traces; must not be null
     * @param nLine its source line
     */
    static void TraceFailure(int nRC, const char* pUnit, unsigned int nLine);

    CConnection m_oConnection;                             ///< the connection
    unsigned int m_nTimeout;                               ///< milliseconds
    std::pmr::unsynchronized_pool_resource m_oMessagePool; ///< memory of m_aoMessageMap, kept close together
    /** Confirmations not yet collected, by telegram id; owns the items. */
    std::pmr::map<short, CMessageItem*> m_aoMessageMap{&m_oMessagePool};
    CZelMutex m_oMutexMessageMap; ///< guards m_aoMessageMap and m_oOldestTime
    std::atomic<short> m_nMsgID;  ///< id of the next request
    EQuorvelDevice m_eDeviceType; ///< device kind
    CZelEvent m_oEventMsg;        ///< signalled whenever a confirmation has been stored

  private:
    void LeaveToParent();
    static bool Parse(CQuorvelMsg& oMsg, const char* pData, unsigned short nLen);
    void StoreConfirmation(std::unique_ptr<CQuorvelMsg> pMsg);
    CQuorvelMsg* CollectMsg(short nMsgID, const unsigned int* pTimeout);
    CQuorvelMsg* WaitForMsg(short nMsgID, const unsigned int* pTimeout, unsigned int nCancelled,
                            CZelIPConnection::CReader& oReader);

    CZelLocalTime m_oOldestTime;                    // no stored confirmation is older
    CZelTurn m_oTurn;                               // one exchange at a time
    CZelIPConnection::CReader* m_pReader = nullptr; // of the exchange whose turn it is
    std::atomic<unsigned int> m_nCancelled{0};      // calls of CancelWait
    unsigned int m_nForks = CZelMonitor::GetForkCount();
    const std::type_info* m_pOwnClass = &typeid(CQuorvelClient);
    bool m_bReceiveWhileWaiting = false;
};

#endif
