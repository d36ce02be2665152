#include "Progress.h"

#include "Text.h"

#include <fmt/format.h>
#include <unistd.h>

namespace
{

constexpr unsigned COLUMNS = 50;

EProgress Choose(const CTool::SOptions& oOptions)
{
    if (oOptions.eProgress != EProgress::eAuto)
        return oOptions.eProgress;
    if (oOptions.bQuiet)
        return EProgress::eNone;
    return ::isatty(STDERR_FILENO) != 0 ? EProgress::eBar : EProgress::ePlain;
}

} // namespace

CProgress::CProgress(CTool& oTool, std::string strTitle, std::uint64_t nTotal)
    : m_oTool(oTool),
      m_strTitle(std::move(strTitle)),
      m_nTotal(nTotal),
      m_eProgress(Choose(oTool.GetOptions()))
{
    oTool.SetProgress(this);
    Show();
}

CProgress::~CProgress()
{
    try {
        Fail();
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch): standard error is gone
    }
}

void CProgress::Update(std::uint64_t nDone)
{
    m_nDone = nDone;
    const auto nPercent = m_nTotal == 0 ? 0U : static_cast<unsigned>(nDone * 100 / m_nTotal);
    if (nPercent == m_nPercent || nPercent >= 100 || m_bEnded)
        return;
    m_nPercent = nPercent;
    Show();
}

void CProgress::Finish()
{
    if (m_bEnded)
        return;
    m_bFinished = true;
    m_nDone = m_nTotal;
    m_nPercent = 100;
    End();
}

void CProgress::Fail()
{
    if (!m_bEnded)
        End();
}

void CProgress::End()
{
    m_bEnded = true;
    Show();
    m_oTool.SetProgress(nullptr);
}

void CProgress::EndLine()
{
    if (!m_bOpen)
        return;
    static_cast<void>(std::fputc('\n', stderr));
    m_bOpen = false;
    m_nColumns = 0;
}

void CProgress::Show()
{
    const double dSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - m_oStart).count();
    const unsigned nColumns = m_nPercent * COLUMNS / 100;
    const bool bFailed = m_bEnded && !m_bFinished;
    switch (m_eProgress) {
    case EProgress::eBar:
        PutError(fmt::format("\r{} | {}{} | {}% {:.2f} s {}", m_strTitle, std::string(nColumns, '#'),
                             std::string(COLUMNS - nColumns, bFailed ? '-' : ' '), m_nPercent, dSeconds,
                             m_bEnded ? "\n" : ""));
        m_bOpen = !m_bEnded;
        break;
    case EProgress::ePlain:
        if (!m_bOpen)
            PutError(m_strTitle + " | ");
        for (; m_nColumns < nColumns; ++m_nColumns)
            static_cast<void>(std::fputc('#', stderr));
        if (m_bEnded)
            PutError(fmt::format("{} | {}% {:.2f} s\n", std::string(COLUMNS - nColumns, '-'), m_nPercent,
                                 dSeconds));
        m_bOpen = !m_bEnded;
        break;
    case EProgress::eJson: {
        CJson oLine{{"title", m_strTitle},
                    {"done", m_nDone},
                    {"total", m_nTotal},
                    {"percent", m_nPercent},
                    {"seconds", dSeconds},
                    {"bytes_per_second", dSeconds > 0 ? static_cast<double>(m_nDone) / dSeconds : 0.0},
                    {"state", m_bFinished ? "done"
                              : bFailed   ? "failed"
                                          : "running"}};
        PutError(FormatJson(oLine) + "\n");
        break;
    }
    case EProgress::eAuto:
    case EProgress::eNone:
        break;
    }
}
