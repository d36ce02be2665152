/**
 * @file QuorvelClientSPI.h
 * @brief The client of the SPI gateway.
 */
#ifndef QUORVEL_CLIENT_SPI_H
#define QUORVEL_CLIENT_SPI_H

#include "QuorvelClient.h"

#include <string>

/**
 * The SPI gateway (kind 3, TCP port 5002): bus settings, full-duplex transfers, command sequences.
 *
 * Threads and results as CQuorvelClient. Arguments are passed on as they are; the gateway judges them and
 * answers 0x0320 (inconsistent data), 0x0321 (error while sending), 0x0330 (unknown sequence op code) or
 * 0x0331 (sequence time-out).
 */
class QUORVEL_API CQuorvelClientSPI : public CQuorvelClient
{
  public:
    /** How many bytes a serial EEPROM's offset occupies. */
    enum EOffsetFormat {
        eOffset1Byte = 1, ///< 8 bits
        eOffset2Byte = 2, ///< 16 bits
        eOffset3Byte = 3, ///< 24 bits
        eOffset4Byte = 4  ///< 32 bits
    };

    /**
     * A client that is not connected yet.
     * @param nTimeout default time-out in milliseconds, see CQuorvelClient
     */
    explicit CQuorvelClientSPI(int nTimeout);
    ~CQuorvelClientSPI() override;

    /** As CQuorvelClient::Open. @return 0 */
    int Open() override;

    /**
     * Sets the bus.
     * @param nBaudrate   bits per second
     * @param nSigLevel   signal level, as the gateway defines it
     * @param nAuxVoltage auxiliary voltage, as the gateway defines it
     * @param nClockMode  clock mode, as the gateway defines it
     * @return result code
     */
    int SetGlobals(unsigned int nBaudrate, unsigned char nSigLevel, unsigned char nAuxVoltage,
                   unsigned char nClockMode);

    /**
     * Reads the bus settings. The outputs are left as they are on failure and when the gateway sends too
     * little.
     * @param nBaudrate   receives bits per second
     * @param nSigLevel   receives the signal level
     * @param nAuxVoltage receives the auxiliary voltage
     * @param nClockMode  receives the clock mode
     * @return result code
     */
    int GetGlobals(unsigned int& nBaudrate, unsigned char& nSigLevel, unsigned char& nAuxVoltage,
                   unsigned char& nClockMode);

    /**
     * One full-duplex transfer: as many bytes are clocked as the larger of the two lengths, zeros following
     * the bytes to write.
     * @param pBufWrite    the bytes to write; with null, zeros are clocked for as long as is read
     * @param nBufWriteLen how many
     * @param pBufRead     receives the bytes read, at most nBufReadLen and at most as many as the gateway
     *                     sent; filled also when the gateway reports an error, untouched when the exchange
     *                     fails. A confirmation without any data fills it with zeros. With null
     *                     nothing is stored.
     * @param nBufReadLen  its size. Neither length may exceed 65528, which is what fits a telegram; longer
     *                     requests are refused with 0x00020000.
     * @return result code
     */
    int DataReq(const char* pBufWrite, unsigned short nBufWriteLen, char* pBufRead,
                unsigned short nBufReadLen);

    /**
     * Has the gateway run a sequence and waits for what it collected.
     * @param pSequence   the sequence: op codes and operands as the gateway defines them; null sends none
     * @param nLen        its length
     * @param pBufRead    receives the confirmation from its result byte on: the result byte comes first, then
     *                    the collected data (SequenceGetCnf leaves the result byte out). May be null.
     * @param nBufReadLen its size
     * @return result code
     */
    int SequenceReq(const char* pSequence, unsigned short nLen, char* pBufRead, unsigned short nBufReadLen);

    /**
     * Has the gateway run a sequence and returns at once; SequenceGetCnf collects the answer, which is kept
     * for about ten times the time-out. May be called from an indication.
     * @param pSequence the sequence; null sends none
     * @param nLen      its length
     * @param pnID      receives the telegram id, whether or not sending succeeded; may be null
     * @return 0, or the code of the transport failure
     */
    int SequenceReq(const char* pSequence, unsigned short nLen, short* pnID);

    /**
     * Waits, at most the client's time-out, for the answer of a sequence. May wait on one thread while others
     * use the client.
     * @param nID         what SequenceReq gave
     * @param pBufRead    receives the collected data without the result byte; may be null
     * @param nBufReadLen its size
     * @return result code; 0x00040000 when no answer came
     */
    int SequenceGetCnf(short nID, char* pBufRead, unsigned short nBufReadLen);

    /**
     * Reads the gateway's digital lines; see BaseReadDigital.
     * @param nInputs  receives the input bits
     * @param nOutputs receives the output bits
     * @return result code
     */
    int ReadDigital(unsigned int& nInputs, unsigned int& nOutputs);

    /**
     * Sets the gateway's digital outputs; see BaseWriteDigital.
     * @param nOutputs the output bits
     * @return result code
     */
    int WriteDigital(unsigned int nOutputs);

    /**
     * An EEPROM offset as bytes for the bus, most significant first.
     * @param nOffset the offset
     * @param eFormat number of bytes
     * @return that many bytes; empty for any other format
     */
    static std::string ToOffset(unsigned int nOffset, EOffsetFormat eFormat);

    /**
     * The I2C slave address byte of a serial EEPROM, for chips that take some offset bits in it.
     * @param nChipAddress chip-select pins
     * @param nOffset      offset in the memory
     * @param nFormat      bits 0 to 7: number of offset bits sent as offset bytes (more than 16 count as 16);
     *                     bits 8 and 9: number of further offset bits carried in the slave address
     * @return the address byte, bit 0 (read/write) clear
     */
    static unsigned int GetEEPROMSlaveAddress(unsigned short nChipAddress, unsigned int nOffset,
                                              unsigned int nFormat);

  protected:
    unsigned int m_nBaudrate = 100000; ///< kept for derived classes; no command uses it
};

#endif
