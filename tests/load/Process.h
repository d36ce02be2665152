// A program that runs as long as the object lives.
#ifndef QUORVEL_LOAD_PROCESS_H
#define QUORVEL_LOAD_PROCESS_H

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

class CProcess
{
  public:
    // Returns when the program has printed something.
    explicit CProcess(std::vector<const char*> apArguments)
    {
        apArguments.push_back(nullptr);
        int anPipe[2];
        if (pipe(anPipe) != 0 || (m_nProcess = fork()) < 0)
            std::abort();
        if (m_nProcess == 0) {
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            dup2(anPipe[1], STDOUT_FILENO);
            close(anPipe[0]);
            close(anPipe[1]);
            execv(apArguments[0], const_cast<char**>(apArguments.data()));
            _exit(127);
        }
        close(anPipe[1]);
        m_strPrinted.resize(1000);
        const ssize_t nRead = read(anPipe[0], m_strPrinted.data(), m_strPrinted.size());
        if (nRead <= 0) {
            std::fprintf(stderr, "%s does not run\n", apArguments[0]);
            std::exit(1);
        }
        m_strPrinted.resize(static_cast<std::size_t>(nRead));
        close(anPipe[0]);
    }
    ~CProcess()
    {
        kill(m_nProcess, SIGTERM);
        waitpid(m_nProcess, nullptr, 0);
    }
    CProcess(const CProcess&) = delete;
    CProcess& operator=(const CProcess&) = delete;

    const std::string& GetPrinted() const { return m_strPrinted; }

  private:
    pid_t m_nProcess = -1;
    std::string m_strPrinted;
};

#endif
