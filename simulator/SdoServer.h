/**
 * @file SdoServer.h
 * @brief The end of SDO transfers that has the objects.
 */
#ifndef QUORVEL_SIM_SDO_SERVER_H
#define QUORVEL_SIM_SDO_SERVER_H

#include "Sdo.h"

/** The objects that a server gives access to. */
class CSdoObjects
{
  public:
    virtual ~CSdoObjects() = default;
    /// Reads an object. An abort code, or 0.
    virtual unsigned ReadObject(unsigned nIndex, unsigned nSubindex, std::string& strData) = 0;
    /**
     * Replaces an object's content.
     * @param bSized whether the client said how long it is; otherwise there are four bytes, of which the
     * object takes what it needs
     * @return an abort code, or 0
     */
    virtual unsigned WriteObject(unsigned nIndex, unsigned nSubindex, const std::string& strData,
                                 bool bSized) = 0;
};

/** Serves one transfer at a time: expedited, in segments, or in blocks with CRC. A new one ends the old one. */
class CSdoServer
{
  public:
    explicit CSdoServer(CSdoObjects& oObjects) : m_oObjects(oObjects) {}

    void Reset() { m_eState = EState::eIdle; }
    /// Takes a request frame and returns the frames to answer with.
    std::vector<std::string> Handle(const std::string& strFrame);

  private:
    enum class EState { eIdle, eDownload, eUpload, eBlockDownload, eBlockEnd, eBlockUpload };

    void Download(const std::string& strFrame);
    void DownloadSegment(const std::string& strFrame);
    void Upload(const std::string& strFrame);
    void UploadSegment(const std::string& strFrame);
    void BlockDownload(const std::string& strFrame);
    void BlockUpload(const std::string& strFrame);
    void Select(const std::string& strFrame);
    void Confirm(unsigned nAbort, const std::string& strConfirmation);
    void Abort(unsigned nCode);
    bool IsToggled(const std::string& strFrame);

    CSdoObjects& m_oObjects;
    EState m_eState = EState::eIdle;
    unsigned m_nIndex = 0;
    unsigned m_nSubindex = 0;
    unsigned m_nToggle = 0;
    bool m_bCrc = false;
    std::optional<std::size_t> m_oSize;
    std::string m_strData; ///< of a transfer in segments
    std::size_t m_nPos = 0;
    CSdoBlockSender m_oSender;
    CSdoBlockReceiver m_oReceiver;
    std::vector<std::string> m_astrAnswers;
};

#endif
