#pragma once

#include "support/temp_dir.h"

#include <csignal>
#include <functional>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test_support {

/// A volume that other software makes and writes: mkntfs formats a plain file, ntfs-3g
/// mounts it, and the caller puts files below the mount point by ordinary means. The
/// image is complete after `unmount`. No mount outlives the object, nor the test.
class mkntfs_volume {
public:
    explicit mkntfs_volume(std::uint32_t cluster_size = 4096,
                           std::uint64_t bytes = std::uint64_t{64} << 20)
    {
        std::filesystem::create_directory(m_root);
        std::ofstream(m_image).close();
        std::filesystem::resize_file(m_image, bytes);
        if (run("mkntfs -F -q -c " + std::to_string(cluster_size) + " " + m_image))
            mount();
    }
    ~mkntfs_volume() { unmount(); }
    mkntfs_volume(const mkntfs_volume &) = delete;
    mkntfs_volume &operator=(const mkntfs_volume &) = delete;

    /// True if the programs are installed and mounts work. Tried once, on a small
    /// volume.
    static bool available()
    {
        static const bool works = mkntfs_volume(4096, 4 << 20).mounted();
        return works;
    }

    bool mounted() const { return m_driver > 0; }

    /// A path on the volume. "name:stream" names a stream.
    std::string operator/(const std::string &name) const { return m_root + "/" + name; }

    /// Writes a file on the volume, with the directories it needs, and returns its
    /// path.
    std::string write_file(const std::string &name, std::string_view bytes) const
    {
        return m_dir.write_file("root/" + name, bytes);
    }

    /// The file that holds the volume.
    const std::string &image() const { return m_image; }

    /// Detaches the volume and waits until the driver has written all and is gone.
    /// False if the volume wasn't mounted, or the driver had to be stopped.
    bool unmount()
    {
        if (!mounted()) return false;
        const bool detached = run("fusermount -u " + m_root) || run("umount " + m_root);
        const bool complete = detached && driver_ended();
        stop_driver();
        return complete;
    }

    /// Mounts the volume again after an `unmount`. The driver stays a child, so that
    /// its end can be waited for. It ends by itself, and with it the mount, if the test
    /// dies.
    bool mount()
    {
        m_ended = false;
        m_driver = fork();
        if (m_driver == 0) {
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            if (std::freopen("/dev/null", "w", stderr) != nullptr)
                execlp("ntfs-3g", "ntfs-3g", "-o",
                       "no_detach,streams_interface=windows", m_image.c_str(),
                       m_root.c_str(), nullptr);
            _exit(127);
        }
        const bool settled = wait_for([this] { return is_attached() || has_ended(); });
        if (!settled || m_ended) stop_driver();
        return mounted();
    }

private:
    static bool run(const std::string &command)
    {
        const std::string path = "PATH=$PATH:/usr/sbin:/sbin ";
        return std::system((path + command + " >/dev/null 2>&1").c_str()) == 0;
    }

    bool is_attached() const
    {
        struct stat root = {}, parent = {};
        return stat(m_root.c_str(), &root) == 0 &&
               stat(m_dir.path.c_str(), &parent) == 0 && root.st_dev != parent.st_dev;
    }

    bool has_ended()
    {
        m_ended = m_ended || waitpid(m_driver, nullptr, WNOHANG) != 0;
        return m_ended;
    }

    // True if it comes true within half a minute.
    static bool wait_for(const std::function<bool()> &done)
    {
        for (int tries = 3000; tries > 0 && !done(); --tries) usleep(10'000);
        return done();
    }

    bool driver_ended()
    {
        return wait_for([this] { return has_ended(); });
    }

    // A lazy detach works while the mount is in use.
    void stop_driver()
    {
        if (is_attached() && !run("fusermount -u -z " + m_root))
            run("umount -l " + m_root);
        if (mounted() && !has_ended()) kill(m_driver, SIGKILL);
        driver_ended();
        m_driver = -1;
    }

    temp_dir m_dir;
    std::string m_image = m_dir / "volume.dd";
    std::string m_root = m_dir / "root";
    pid_t m_driver = -1;
    bool m_ended = false;
};

} // namespace test_support
