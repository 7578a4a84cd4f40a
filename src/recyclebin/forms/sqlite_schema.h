#pragma once

/// The database that `sqlite` writes; docs/forms.md describes it.
namespace hv {

/// Every key begins with the medium, so that the rows of several databases fit into
/// one. The version grows with each change.
inline constexpr const char *sqlite_schema = R"(
PRAGMA application_id = 0x5242696E;
PRAGMA user_version = 1;
PRAGMA foreign_keys = ON;

CREATE TABLE medium (
    name TEXT NOT NULL PRIMARY KEY,
    size INTEGER NOT NULL,
    kind TEXT NOT NULL,
    program_version TEXT NOT NULL,
    unreadable_bytes INTEGER NOT NULL
) WITHOUT ROWID;

CREATE TABLE volume (
    medium TEXT NOT NULL REFERENCES medium ON UPDATE CASCADE ON DELETE CASCADE,
    region INTEGER NOT NULL,
    number INTEGER,
    offset INTEGER NOT NULL,
    size INTEGER NOT NULL,
    label TEXT NOT NULL,
    serial TEXT NOT NULL,
    found_by TEXT NOT NULL,
    cluster_size INTEGER NOT NULL,
    record_size INTEGER NOT NULL,
    sector_size INTEGER NOT NULL,
    trouble TEXT NOT NULL,
    PRIMARY KEY (medium, region)
) WITHOUT ROWID;

CREATE TABLE snapshot (
    medium TEXT NOT NULL,
    region INTEGER NOT NULL,
    number INTEGER NOT NULL,
    created TEXT,
    created_filetime INTEGER,
    PRIMARY KEY (medium, region, number),
    FOREIGN KEY (medium, region) REFERENCES volume ON UPDATE CASCADE ON DELETE CASCADE
) WITHOUT ROWID;

CREATE TABLE user (
    medium TEXT NOT NULL,
    region INTEGER NOT NULL,
    folder TEXT NOT NULL,
    folder_utf16 BLOB NOT NULL,
    name TEXT,
    PRIMARY KEY (medium, region, folder),
    FOREIGN KEY (medium, region) REFERENCES volume ON UPDATE CASCADE ON DELETE CASCADE
) WITHOUT ROWID;

CREATE TABLE deletion (
    medium TEXT NOT NULL,
    id TEXT NOT NULL,
    region INTEGER NOT NULL,
    user TEXT,
    state TEXT NOT NULL,
    content TEXT NOT NULL,
    is_directory INTEGER NOT NULL,
    seen_in TEXT NOT NULL,
    deleted TEXT,
    deleted_filetime INTEGER,
    path TEXT,
    path_utf16 BLOB,
    path_is_whole INTEGER NOT NULL,
    stated_size INTEGER,
    found_size INTEGER,
    metadata_format TEXT,
    metadata_file TEXT NOT NULL,
    data_file TEXT NOT NULL,
    metadata_entry INTEGER,
    metadata_sequence INTEGER,
    data_entry INTEGER,
    data_sequence INTEGER,
    record_changed TEXT,
    record_changed_filetime INTEGER,
    logged TEXT,
    logged_filetime INTEGER,
    data_created TEXT,
    data_created_filetime INTEGER,
    data_modified TEXT,
    data_modified_filetime INTEGER,
    data_record_changed TEXT,
    data_record_changed_filetime INTEGER,
    data_accessed TEXT,
    data_accessed_filetime INTEGER,
    outside_path TEXT,
    outside_path_utf16 BLOB,
    owner TEXT,
    PRIMARY KEY (medium, id),
    FOREIGN KEY (medium, region) REFERENCES volume ON UPDATE CASCADE ON DELETE CASCADE,
    FOREIGN KEY (medium, region, user) REFERENCES user
        ON UPDATE CASCADE ON DELETE CASCADE
) WITHOUT ROWID;

CREATE TABLE sighting (
    medium TEXT NOT NULL,
    deletion TEXT NOT NULL,
    number INTEGER NOT NULL,
    kind TEXT NOT NULL,
    source TEXT NOT NULL,
    file TEXT,
    sha256 TEXT,
    is_torn INTEGER NOT NULL,
    in_use INTEGER,
    is_in_bin INTEGER NOT NULL,
    entry INTEGER,
    sequence INTEGER,
    parent_entry INTEGER,
    parent_sequence INTEGER,
    name TEXT NOT NULL,
    user TEXT,
    metadata_format TEXT,
    metadata_length INTEGER,
    deleted TEXT,
    deleted_filetime INTEGER,
    size INTEGER,
    path TEXT,
    path_utf16 BLOB,
    path_is_whole INTEGER,
    record_number INTEGER,
    is_struck INTEGER,
    data_size INTEGER,
    content TEXT,
    is_directory INTEGER,
    data_created TEXT,
    data_created_filetime INTEGER,
    data_modified TEXT,
    data_modified_filetime INTEGER,
    data_record_changed TEXT,
    data_record_changed_filetime INTEGER,
    data_accessed TEXT,
    data_accessed_filetime INTEGER,
    outside_path TEXT,
    outside_path_utf16 BLOB,
    owner TEXT,
    logged TEXT,
    logged_filetime INTEGER,
    reason INTEGER,
    PRIMARY KEY (medium, deletion, number),
    FOREIGN KEY (medium, deletion) REFERENCES deletion
        ON UPDATE CASCADE ON DELETE CASCADE
) WITHOUT ROWID;

CREATE TABLE sighting_view (
    medium TEXT NOT NULL,
    deletion TEXT NOT NULL,
    sighting INTEGER NOT NULL,
    snapshot INTEGER NOT NULL,
    PRIMARY KEY (medium, deletion, sighting, snapshot),
    FOREIGN KEY (medium, deletion, sighting) REFERENCES sighting
        ON UPDATE CASCADE ON DELETE CASCADE
) WITHOUT ROWID;

CREATE TABLE byte_range (
    medium TEXT NOT NULL,
    deletion TEXT NOT NULL,
    sighting INTEGER NOT NULL,
    what TEXT NOT NULL CHECK (what IN ('proof', 'data')),
    number INTEGER NOT NULL,
    offset INTEGER NOT NULL,
    length INTEGER NOT NULL,
    PRIMARY KEY (medium, deletion, sighting, what, number),
    FOREIGN KEY (medium, deletion, sighting) REFERENCES sighting
        ON UPDATE CASCADE ON DELETE CASCADE
) WITHOUT ROWID;

CREATE TABLE data_range (
    medium TEXT NOT NULL,
    deletion TEXT NOT NULL,
    number INTEGER NOT NULL,
    offset INTEGER NOT NULL,
    length INTEGER NOT NULL,
    PRIMARY KEY (medium, deletion, number),
    FOREIGN KEY (medium, deletion) REFERENCES deletion
        ON UPDATE CASCADE ON DELETE CASCADE
) WITHOUT ROWID;

CREATE TABLE member (
    medium TEXT NOT NULL,
    deletion TEXT NOT NULL,
    number INTEGER NOT NULL,
    path TEXT NOT NULL,
    path_utf16 BLOB NOT NULL,
    PRIMARY KEY (medium, deletion, number),
    FOREIGN KEY (medium, deletion) REFERENCES deletion
        ON UPDATE CASCADE ON DELETE CASCADE
) WITHOUT ROWID;

CREATE TABLE conflict (
    medium TEXT NOT NULL,
    deletion TEXT NOT NULL,
    number INTEGER NOT NULL,
    text TEXT NOT NULL,
    PRIMARY KEY (medium, deletion, number),
    FOREIGN KEY (medium, deletion) REFERENCES deletion
        ON UPDATE CASCADE ON DELETE CASCADE
) WITHOUT ROWID;

CREATE VIEW deletions AS
SELECT d.medium, v.number AS volume, d.deleted,
       coalesce(d.stated_size, d.found_size) AS size,
       d.user, u.name AS user_name, d.state,
       CASE WHEN d.content <> 'none' THEN d.content
            WHEN d.is_directory THEN 'folder' END AS data,
       d.seen_in,
       CASE WHEN d.path IS NULL
            THEN '<' || CASE d.data_file WHEN '' THEN d.metadata_file
                                         ELSE d.data_file END || '>'
            ELSE d.path || CASE WHEN d.path_is_whole THEN '' ELSE '...' END
                        || CASE WHEN d.is_directory AND d.path NOT LIKE '%\'
                                THEN '\' ELSE '' END END AS path,
       d.id,
       (SELECT count(*) FROM conflict c
         WHERE c.medium = d.medium AND c.deletion = d.id) AS conflicts
  FROM deletion d
  JOIN volume v ON v.medium = d.medium AND v.region = d.region
  LEFT JOIN user u ON u.medium = d.medium AND u.region = d.region
                  AND u.folder = d.user;

CREATE VIEW timeline AS
WITH moments (medium, id, moment, filetime, what) AS (
    SELECT medium, id, deleted, deleted_filetime, 'Content Deletion Time'
      FROM deletion
    UNION ALL
    SELECT medium, id, logged, logged_filetime, 'Recycle Bin Entry Logged'
      FROM deletion
    UNION ALL
    SELECT medium, id, coalesce(data_record_changed, record_changed),
           coalesce(data_record_changed_filetime, record_changed_filetime),
           'Metadata Modification Time' FROM deletion
    UNION ALL
    SELECT medium, id, data_created, data_created_filetime, 'Creation Time'
      FROM deletion
    UNION ALL
    SELECT medium, id, data_modified, data_modified_filetime, 'Content Modification Time'
      FROM deletion
    UNION ALL
    SELECT medium, id, data_accessed, data_accessed_filetime, 'Last Access Time'
      FROM deletion)
SELECT m.moment, m.what, d.medium, d.volume, d.user, d.user_name, d.path, d.state, d.id
  FROM moments m JOIN deletions d USING (medium, id)
 WHERE m.moment IS NOT NULL
 ORDER BY m.filetime, d.medium, d.id, m.what;

CREATE VIEW by_user AS
SELECT medium, volume, user, user_name, count(*) AS deletions,
       sum(state = 'in-bin') AS in_bin, sum(state = 'emptied') AS emptied,
       sum(state = 'restored') AS restored,
       sum(state = 'metadata-only') AS metadata_only,
       sum(state = 'data-only') AS data_only,
       sum(state = 'journal-only') AS journal_only,
       min(deleted) AS first_deleted, max(deleted) AS last_deleted
  FROM deletions GROUP BY medium, volume, user;
)";

} // namespace hv
