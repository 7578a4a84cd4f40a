#pragma once

#include "support/temp_dir.h"

#include <csignal>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace test_support {

/// A file whose reads fail as those of a damaged or removed disk do; the faults are
/// those that failing_disk.cpp lists. The system reads it through FUSE.
class failing_disk {
public:
    failing_disk(const std::string &image, std::vector<std::string> faults)
    {
        std::filesystem::create_directory(m_root);
        faults.insert(faults.begin(), {FAILING_DISK_BINARY, image, m_root});
        m_driver = fork();
        if (m_driver == 0) {
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            std::vector<char *> argv;
            argv.reserve(faults.size() + 1);
            for (std::string &fault : faults) argv.push_back(fault.data());
            argv.push_back(nullptr);
            if (std::freopen("/dev/null", "w", stderr) != nullptr)
                execv(argv[0], argv.data());
            _exit(127);
        }
        constexpr int max_tries = 1000;
        for (int i = 0; i < max_tries && !is_mounted() && !has_ended(); ++i)
            usleep(5000);
    }
    ~failing_disk()
    {
        for (const char *detach : {"fusermount3 -u -z ", "umount -l "})
            if (std::system((detach + m_root + " 2>/dev/null").c_str()) == 0) break;
        if (!has_ended()) kill(m_driver, SIGTERM);
        if (!m_ended) waitpid(m_driver, nullptr, 0);
    }
    failing_disk(const failing_disk &) = delete;
    failing_disk &operator=(const failing_disk &) = delete;

    /// Whether disks of this kind can be mounted here. Tried once.
    static bool available()
    {
        static const bool works = failing_disk("/dev/null", {}).is_mounted();
        return works;
    }

    bool is_mounted() const { return access(path().c_str(), F_OK) == 0; }
    std::string path() const { return m_root + "/disk"; }

private:
    bool has_ended()
    {
        m_ended = m_ended || waitpid(m_driver, nullptr, WNOHANG) != 0;
        return m_ended;
    }

    temp_dir m_dir;
    std::string m_root = m_dir / "root";
    pid_t m_driver = -1;
    bool m_ended = false;
};

} // namespace test_support
