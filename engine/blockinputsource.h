#pragma once

// Engine-internal: a qpdf input source over an open file descriptor.

#include <qpdf/InputSource.hh>

#include <deque>
#include <memory>
#include <string>
#include <sys/types.h>

namespace Engine {

class OpenFiles;

// Reads a file through pread in cached blocks. qpdf's stdio source seeks the file before
// nearly every object it reads, and those system calls cost more than parsing the objects;
// here a seek only moves a position. Reads never change the descriptor's own offset, so the
// caller may copy from the same descriptor meanwhile. A small file is read whole at once, and
// so is one read all over again (the streams of a split's pieces) when it is not large.
class BlockInputSource final : public InputSource
{
public:
    // Reads the caller's descriptor, which stays the caller's.
    BlockInputSource(int fd, long long size, std::string name);
    // Opens the file at path (the source's own descriptor). Within a group of files, the file may
    // be closed between reads and opened again when next read, so that a merge of thousands of
    // documents stays within the open-file limit; a file replaced meanwhile is not read.
    // Throws QPDFSystemError when the file cannot be opened.
    static std::shared_ptr<BlockInputSource> open(const std::string &path,
                                                  OpenFiles *group = nullptr);
    ~BlockInputSource() override;
    BlockInputSource(const BlockInputSource &) = delete;
    BlockInputSource &operator=(const BlockInputSource &) = delete;

    // Closes the source's own file and frees its block until the next read.
    void release();
    // Joins a group of files (see open()), from the thread that reads the group's files.
    void join(OpenFiles *group);

    qpdf_offset_t findAndSkipNextEOL() override;
    std::string const &getName() const override { return m_name; }
    qpdf_offset_t tell() override { return m_position; }
    void seek(qpdf_offset_t offset, int whence) override;
    void rewind() override { m_position = 0; }
    size_t read(char *buffer, size_t length) override;
    void unreadCh(char) override;

    // Up to length bytes at offset, fewer at the end of the file; the position stays.
    std::string bytesAt(qpdf_offset_t offset, size_t length);

private:
    // Copies up to length bytes at offset into buffer; the count copied.
    size_t copyOut(qpdf_offset_t offset, char *buffer, size_t length);
    // The cached block holding offset, loaded if need be; false past the end or on an error.
    bool load(qpdf_offset_t offset);

    // Opens the source's own file again for a read, as the same file it was.
    void reopen();

    int m_fd;
    bool m_owned = false;
    OpenFiles *m_group = nullptr;
    dev_t m_device = 0;
    ino_t m_inode = 0;
    qpdf_offset_t m_size;
    std::string m_name;
    qpdf_offset_t m_position = 0;
    std::unique_ptr<char[]> m_block;
    qpdf_offset_t m_capacity = 0;
    qpdf_offset_t m_blockStart = -1;
    qpdf_offset_t m_blockSize;
    qpdf_offset_t m_loads = 0; // blocks loaded
};

// The sources that share a limit of open files: opening one more closes the one opened longest
// ago (it opens again when it is next read).
class OpenFiles
{
public:
    explicit OpenFiles(size_t limit)
        : m_limit(limit)
    {}
    void opened(BlockInputSource *source);
    void closed(BlockInputSource *source);

private:
    size_t m_limit;
    std::deque<BlockInputSource *> m_open;
};

} // namespace Engine
