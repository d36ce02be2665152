/**
 * @file QuorvelMsg.h
 * @brief One telegram, and the byte order of the numbers in it.
 */
#ifndef QUORVEL_MSG_H
#define QUORVEL_MSG_H

#include "QuorvelExport.h"

#include <string>

/**
 * One telegram: a request, its confirmation, or an indication.
 *
 * Layout on the wire (n data bytes, numbers little-endian):
 *
 * | offset | size | field                                                                             |
 * |--------|------|-----------------------------------------------------------------------------------|
 * | 0      | 2    | length: n + 5, the number of bytes that follow                                    |
 * | 2      | 2    | command code: bit 15 confirmation, bits 8 to 14 device kind, bits 0 to 7 command  |
 * | 4      | 2    | telegram id, signed; a confirmation carries its request's id                      |
 * | 6      | n    | data                                                                              |
 * | 6 + n  | 1    | check byte ("CRC"): XOR of all bytes from the command code to the end of the data |
 *
 * Objects are values: copying one copies the telegram. Different objects may be used by different threads.
 */
class QUORVEL_API CQuorvelMsg
{
  public:
    /** An empty telegram: no data, command code 0, id 0. */
    CQuorvelMsg();

    /** Builds a telegram; see SetMessage with the same arguments. */
    CQuorvelMsg(unsigned short nCmdCode, short nMsgID, const char* pData, unsigned short nDataLen);

    /**
     * Builds a telegram from data that it takes over instead of copying it.
     * @param nCmdCode command code
     * @param nMsgID   telegram id
     * @param strData  data bytes
     */
    CQuorvelMsg(unsigned short nCmdCode, short nMsgID, std::string&& strData);

    /** Parses received bytes; see SetMessage with the same arguments. IsValid tells the outcome. */
    CQuorvelMsg(const char* pBuffer, unsigned short nBufferLen);

    CQuorvelMsg(const CQuorvelMsg&) = default;            ///< copies the telegram
    CQuorvelMsg(CQuorvelMsg&&) = default;                 ///< takes the telegram over
    CQuorvelMsg& operator=(const CQuorvelMsg&) = default; ///< copies the telegram
    CQuorvelMsg& operator=(CQuorvelMsg&&) = default;      ///< takes the telegram over

    virtual ~CQuorvelMsg();

    /** @return true when the length field agrees with the number of data bytes */
    virtual bool IsValid() const;

    /** @return the check byte that belongs to command code, id and data */
    virtual unsigned char ComputeCRC() const;

    /**
     * Builds the telegram from its fields; length and check byte are computed.
     *
     * @param nCmdCode command code
     * @param nMsgID   telegram id
     * @param pData    data bytes, copied; null for none
     * @param nDataLen number of data bytes; more than 65528 make a telegram that is too long to be sent
     */
    void SetMessage(unsigned short nCmdCode, short nMsgID, const char* pData, unsigned short nDataLen);

    /**
     * Parses one received telegram. The fields take what was received, consistent or not; the check byte is
     * not checked (see IsCRCValid).
     *
     * @param pBuffer    the telegram from its length bytes on; null gives the empty telegram
     * @param nBufferLen number of bytes; fewer than 7 give the empty telegram
     * @return true when the telegram is complete and its length field is right
     */
    bool SetMessage(const char* pBuffer, unsigned short nBufferLen);

    /** @return the command code */
    unsigned short GetCmdCode() const { return m_nCmdCode; }

    /** @return the telegram id */
    short GetMsgID() const { return m_nMsgID; }

    /** @return the check byte as built or as received */
    unsigned char GetCRC() const { return m_nCRC; }

    /** @return the data bytes; valid as long as the object is not changed */
    const std::string& GetData() const { return m_strData; }

    /** @return true for a confirmation (bit 15 of the command code) */
    bool IsConfirmation() const { return (m_nCmdCode & 0x8000) == 0x8000; }

    /** @return true when the check byte is right */
    bool IsCRCValid() const { return ComputeCRC() == m_nCRC; }

    /** @return the six bytes before the data: length as it is stored, command code, telegram id */
    std::string GetHeader() const;

    /** @return the bytes for the wire: header, data, check byte as it is stored */
    std::string GetMessageData() const;

    /** @name Numbers to bytes, little-endian: 2, 4 or 8 bytes */
    ///@{
    static std::string ToChar(short nValue);              ///< gives 2 bytes
    static std::string ToChar(unsigned short nValue);     ///< gives 2 bytes
    static std::string ToChar(int nValue);                ///< gives 4 bytes
    static std::string ToChar(unsigned int nValue);       ///< gives 4 bytes
    static std::string ToChar(long long nValue);          ///< gives 8 bytes
    static std::string ToChar(unsigned long long nValue); ///< gives 8 bytes
    ///@}

    /** @name Bytes to numbers, little-endian. Exactly 2, 4 or 8 bytes are read; they must be there, and pData
     * must not be null. */
    ///@{
    static void FromChar(short& nValue, const char* pData);              ///< reads 2 bytes
    static void FromChar(unsigned short& nValue, const char* pData);     ///< reads 2 bytes
    static void FromChar(int& nValue, const char* pData);                ///< reads 4 bytes
    static void FromChar(unsigned int& nValue, const char* pData);       ///< reads 4 bytes
    static void FromChar(long long& nValue, const char* pData);          ///< reads 8 bytes
    static void FromChar(unsigned long long& nValue, const char* pData); ///< reads 8 bytes
                                                                         ///@}

  protected:
    /** Stores everything but the data, which is there already. */
    void Seal(unsigned short nCmdCode, short nMsgID);

    std::string m_strData;     ///< data bytes
    unsigned short m_nLength;  ///< length field
    unsigned short m_nCmdCode; ///< command code
    short m_nMsgID;            ///< telegram id
    unsigned char m_nCRC;      ///< check byte
};

/**
 * Reverses the four bytes of a number (big-endian to little-endian and back).
 * @param nValue the number
 * @return the number with byte 0 and 3, and 1 and 2, exchanged
 */
QUORVEL_API unsigned int swablong(unsigned int nValue);

#endif
