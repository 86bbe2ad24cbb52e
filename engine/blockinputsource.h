#pragma once

// Engine-internal: a qpdf input source over an open file descriptor.

#include <qpdf/InputSource.hh>

#include <string>
#include <vector>

namespace Engine {

// Reads a file through pread in cached blocks. qpdf's stdio source seeks the file before
// nearly every object it reads, and those system calls cost more than parsing the objects;
// here a seek only moves a position. Reads never change the descriptor's own offset, so the
// caller may copy from the same descriptor meanwhile. The descriptor stays the caller's.
class BlockInputSource final : public InputSource
{
public:
    BlockInputSource(int fd, long long size, std::string name);

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

    int m_fd;
    qpdf_offset_t m_size;
    std::string m_name;
    qpdf_offset_t m_position = 0;
    std::vector<char> m_block;
    qpdf_offset_t m_blockStart = -1;
};

} // namespace Engine
