#pragma once

#include "ntfs/ntfs.h"
#include "samples/ntfs_volume_builder.h"
#include "support/temp_dir.h"

namespace test_support {

/// A volume that was built, in a file of its own, and opened.
struct built_volume {
    explicit built_volume(const ntfs_volume_builder &builder)
        : built_volume(builder.build_volume())
    {
    }
    explicit built_volume(ntfs_volume from, std::uint64_t offset = 0)
        : built(std::move(from)),
          path(dir.write_file("volume", text(built.image))),
          volume(path, offset, hv::volume_kind::path)
    {
        EXPECT_TRUE(volume.validate_volume());
    }

    ntfs_volume built;
    temp_dir dir;
    std::string path;
    hv::CNtfs volume;
};

} // namespace test_support
