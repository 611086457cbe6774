#pragma once

#include <archive.h>
#include <archive_entry.h>

/// The functions of libarchive, under its names without "archive_". They are in a module (migration/archive), which is
/// loaded with the first backup: libarchive brings all ways of packing that it knows. Any thread.
struct KXArchiveLibrary
{
    /// nullptr where the module cannot be loaded, which the log says once.
    [[nodiscard]] static const KXArchiveLibrary *shared();

    decltype(&archive_entry_filetype) entryFiletype = &archive_entry_filetype;
    decltype(&archive_entry_free) entryFree = &archive_entry_free;
    decltype(&archive_entry_new) entryNew = &archive_entry_new;
    decltype(&archive_entry_pathname) entryPathname = &archive_entry_pathname;
    decltype(&archive_entry_set_filetype) entrySetFiletype = &archive_entry_set_filetype;
    decltype(&archive_entry_set_mtime) entrySetMtime = &archive_entry_set_mtime;
    decltype(&archive_entry_set_nlink) entrySetNlink = &archive_entry_set_nlink;
    decltype(&archive_entry_set_pathname) entrySetPathname = &archive_entry_set_pathname;
    decltype(&archive_entry_set_perm) entrySetPerm = &archive_entry_set_perm;
    decltype(&archive_entry_set_size) entrySetSize = &archive_entry_set_size;
    decltype(&archive_entry_size) entrySize = &archive_entry_size;
    decltype(&archive_error_string) errorString = &archive_error_string;
    decltype(&archive_read_data) readData = &archive_read_data;
    decltype(&archive_read_free) readFree = &archive_read_free;
    decltype(&archive_read_new) readNew = &archive_read_new;
    decltype(&archive_read_next_header) readNextHeader = &archive_read_next_header;
    decltype(&archive_read_open) readOpen = &archive_read_open;
    decltype(&archive_read_support_format_cpio) readSupportFormatCpio = &archive_read_support_format_cpio;
    decltype(&archive_set_error) setError = &archive_set_error;
    decltype(&archive_write_add_filter_gzip) writeAddFilterGzip = &archive_write_add_filter_gzip;
    decltype(&archive_write_close) writeClose = &archive_write_close;
    decltype(&archive_write_data) writeData = &archive_write_data;
    decltype(&archive_write_free) writeFree = &archive_write_free;
    decltype(&archive_write_header) writeHeader = &archive_write_header;
    decltype(&archive_write_new) writeNew = &archive_write_new;
    decltype(&archive_write_open) writeOpen = &archive_write_open;
    decltype(&archive_write_set_bytes_in_last_block) writeSetBytesInLastBlock = &archive_write_set_bytes_in_last_block;
    decltype(&archive_write_set_format_cpio) writeSetFormatCpio = &archive_write_set_format_cpio;
    decltype(&archive_write_set_options) writeSetOptions = &archive_write_set_options;
};

/// For who has looked whether it is there.
inline const KXArchiveLibrary &KXLibarchive() { return *KXArchiveLibrary::shared(); }
