// The base of the file sources: it holds the file asked for, so that a running source can be
// pointed at another file; the change takes effect at the next block.
#pragma once

#include <mutex>
#include <string>

#include "platform/Relaxed.h"
#include "sources/CSOURCE.h"

class CSOURCE_FILE : public CSOURCE {
    QK_DECLARE_SERIAL(CSOURCE_FILE)

  public:
    CSOURCE_FILE() = default;

    void Serialize(qk::CArchive &ar) override;

    // Describes the file; the base does nothing.
    virtual void GetFileInfo(char *pcInfo1, char *pcInfo2, int *piInfo);

    // Asks for another file; may be called from a host thread during play.
    void SetFile(const std::string &strFile);
    std::string GetFileRequest() const;

    // 1: a file at another rate than the engine's is converted band-limited (libsamplerate),
    // seamless across blocks. 0 (the default): the source base's integer zero-stuffing, which
    // changes speed and pitch unless the rates are whole multiples. Set by the engine.
    qk::Relaxed<int> m_iResampleQuality = 0;
    // 1: the end of the file is heard exactly: an AC-3 stream that has ended gives silence,
    // and a wave file goes on from its start without a gap. 0 (the default): as the sources
    // always have, old samples stay in the block behind the last fresh ones. Set by the
    // engine.
    qk::Relaxed<int> m_iExactEnd = 0;

  protected:
    // Takes over a file asked for by SetFile; true when there is one.
    bool TakeRequest();
    // Reports that the file in use can't be played, once a file name: _init runs again at
    // every block while a file is missing. Clearing m_strReported once a file opens lets the
    // next failure be reported again.
    void Fail(const std::string &strWhat);

    mutable std::mutex m_csFileRequest;
    std::string m_strFileRequest;  // the file wanted; m_strFile is the file in use
    std::string m_strReported;     // the file whose failure was last reported
};
