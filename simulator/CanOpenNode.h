/**
 * @file CanOpenNode.h
 * @brief A CANopen node on a simulated CAN bus.
 */
#ifndef QUORVEL_SIM_CANOPEN_NODE_H
#define QUORVEL_SIM_CANOPEN_NODE_H

#include "CanBus.h"
#include "SdoServer.h"

#include <map>
#include <memory>
#include <string>

/**
 * A node with digital outputs, inputs, a temperature and a memory, as it behaves on the bus.
 *
 *  - NMT: sends its boot-up message (0x700 + node, 00) and is pre-operational; start, stop, pre-operational,
 * reset node and reset communication are obeyed, for its own number and for 0
 *  - heartbeat (object 0x1017), and node guarding: a remote frame 0x700 + node is answered with the state and
 * the toggle bit
 *  - SDO server, except when stopped: expedited, segments, blocks with CRC
 *  - operational: PDO 0x200 + node sets the outputs (4 bytes). PDO 0x180 + node tells inputs (4 bytes) and
 * temperature (2 bytes), on every n-th SYNC or on a change (object 0x1800 sub 2).
 *  - EMCY, except when stopped
 *
 * | object | sub | type | access | value |
 * |---|---|---|---|---|
 * | 0x1000 device type | 0 | u32 | r | 0x00030191 |
 * | 0x1001 error register | 0 | u8 | r | of the last EMCY |
 * | 0x1008 device name | 0 | text | r | "Quorvel CANopen node" |
 * | 0x1017 heartbeat time in ms | 0 | u16 | rw | 0: none |
 * | 0x1018 identity | 0 to 4 | u8, u32 | r | 4; vendor 0, product 0x51, revision 0x00010000, serial number 1 |
 * | 0x1400 receive PDO | 0 to 2 | u8, u32, u8 | r | 2; identifier; 255 |
 * | 0x1800 transmit PDO | 0 to 2 | u8, u32, u8 | r; sub 2 rw | 2; identifier; 1 to 240: on every n-th SYNC, 254
 * or 255: on a change. 1 at start |
 * | 0x2000 scratch | 0 | u32 | rw | 0 |
 * | 0x2001 temperature in 0.1 degrees | 0 | i16 | rw | 215 |
 * | 0x2002 emergency | 0 | u16 | w | sends an EMCY with the value as its error code; 0: no error any more |
 * | 0x2010 memory | 0 | domain | rw | up to 8192 bytes; at start 4096, counted from 00 to FF again and again |
 * | 0x2100 outputs | 0 | u32 | rw | 0 |
 * | 0x2101 inputs | 0 | u32 | r | the outputs looped back |
 *
 * A reset of the node brings all but the memory back to the values at start, a reset of its communication
 * those of 0x1017 and 0x1800. All public functions may be called from any thread.
 */
class CCanOpenNode : private CCanStation, private CSdoObjects
{
  public:
    enum EState : unsigned char { eInitialising = 0, eStopped = 4, eOperational = 5, ePreOperational = 127 };
    static constexpr std::size_t nMaxMemory = 8192;

    /// @param nNodeID 1 to 127
    CCanOpenNode(std::shared_ptr<CCanBus> pBus, unsigned nNodeID);
    ~CCanOpenNode() override;
    CCanOpenNode(const CCanOpenNode&) = delete;
    CCanOpenNode& operator=(const CCanOpenNode&) = delete;

    unsigned GetNodeID() const { return m_nNodeID; }
    EState GetState() const;

    /// Switches the node off, so that it acknowledges nothing any more, and on again.
    void SetPower(bool bOn);
    /// Bits per second; with 0, as at start, the node detects what the others have.
    void SetBitRate(unsigned nBitRate);
    /// Sends an EMCY; the manufacturer's bytes are filled up with zeros to five.
    void SendEmergency(unsigned short nCode, unsigned char nRegister,
                       const std::string& strManufacturer = {});
    /// Forces the inputs, which otherwise follow the outputs.
    void SetInputs(unsigned nInputs);
    unsigned GetOutputs() const;
    /// The memory, object 0x2010; no more than nMaxMemory bytes.
    std::string GetMemory() const;
    void SetMemory(const std::string& strMemory);

  private:
    struct SObject {
        unsigned nSize = 0;
        bool bWritable = false;
        unsigned nValue = 0;
    };

    void OnFrame(const SCanTransmission& oTransmission) override;
    void OnTimer() override;
    unsigned ReadObject(unsigned nIndex, unsigned nSubindex, std::string& strData) override;
    unsigned WriteObject(unsigned nIndex, unsigned nSubindex, const std::string& strData,
                         bool bSized) override;

    unsigned WriteMemory(const std::string& strData);
    unsigned& Value(unsigned nKey) { return m_aoObjects.at(nKey).nValue; }
    void Boot(bool bWholeNode);
    void OnNmt(unsigned nCommand);
    void OnSync();
    void SetOutputs(unsigned nOutputs);
    void OnChange();
    void SendPdo();
    void SendState(unsigned nState);
    void SendEmcy(unsigned nCode, unsigned nRegister, const std::string& strManufacturer);
    void Send(unsigned nID, const std::string& strData);
    void RestartHeartbeat();

    const std::shared_ptr<CCanBus> m_pBus;
    const unsigned m_nNodeID;

    // Guarded by the bus.
    EState m_eState = eInitialising;
    unsigned m_nBitRate = 0;
    bool m_bOn = false;
    unsigned m_nToggle = 0;
    unsigned m_nSyncs = 0;
    std::optional<unsigned> m_oInputs;
    std::map<unsigned, SObject> m_aoObjects; ///< by index * 256 + subindex
    std::string m_strMemory;
    CSdoServer m_oServer{*this};
};

#endif
