#pragma once

// Reads a device line by line the way a text-mode reader does (LF or CR LF ends a line, the end
// is not part of the line, a last line without an end still counts), in large blocks so that a
// scan through a big field file costs little more than the read itself. A line may be of any
// length; the view stays valid until the next call.

#include <QByteArray>
#include <QByteArrayView>
#include <QIODevice>

#include <algorithm>
#include <cstring>

namespace qarvo::catalogue {

class LineReader
{
public:
    // Lines longer than this are cut to it; the rest of such a line is skipped as it arrives, so
    // a file without line ends cannot take all memory.
    static constexpr qsizetype DefaultMaxLineLength = 16 * 1024 * 1024;

    explicit LineReader(QIODevice &device, qsizetype blockSize = 256 * 1024,
                        qsizetype maxLineLength = DefaultMaxLineLength)
        : m_device(device), m_blockSize(blockSize), m_maxLine(maxLineLength)
    {
    }

    bool next(QByteArrayView &line)
    {
        for (;;) {
            const char *begin = m_buffer.constData() + m_pos;
            qsizetype available = m_buffer.size() - m_pos;
            const qsizetype unscanned = available - m_scanned;
            const void *lf = unscanned > 0
                                 ? std::memchr(begin + m_scanned, '\n', size_t(unscanned))
                                 : nullptr;
            if (lf) {
                const qsizetype end = static_cast<const char *>(lf) - begin;
                qsizetype length = end;
                if (m_overlong) {
                    length = m_maxLine;
                    m_overlong = false;
                } else if (length > 0 && begin[length - 1] == '\r') {
                    --length;
                }
                length = std::min(length, m_maxLine);
                m_pos += end + 1;
                m_scanned = 0;
                line = QByteArrayView(begin, length);
                return true;
            }
            if (available > m_maxLine) {
                m_buffer.resize(m_pos + m_maxLine);
                m_overlong = true;
                available = m_maxLine;
            }
            m_scanned = available;
            if (m_atEnd) {
                if (available == 0)
                    return false;
                m_pos = m_buffer.size();
                m_scanned = 0;
                m_overlong = false;
                line = QByteArrayView(begin, available);
                return true;
            }
            fill();
        }
    }

private:
    void fill()
    {
        // Keep the unfinished line at the front and read the next block behind it.
        if (m_pos > 0) {
            m_buffer.remove(0, m_pos);
            m_pos = 0;
        }
        const qsizetype kept = m_buffer.size();
        m_buffer.resize(kept + m_blockSize);
        const qint64 got = m_device.read(m_buffer.data() + kept, m_blockSize);
        if (got <= 0) {
            m_buffer.resize(kept);
            m_atEnd = true;
            return;
        }
        m_buffer.resize(kept + qsizetype(got));
    }

    QIODevice &m_device;
    qsizetype m_blockSize;
    qsizetype m_maxLine;
    QByteArray m_buffer;
    qsizetype m_pos = 0;     // start of the next line in m_buffer
    qsizetype m_scanned = 0; // bytes after m_pos already known to hold no line end
    bool m_overlong = false; // the line at m_pos has been cut; skipping to its end
    bool m_atEnd = false;
};

} // namespace qarvo::catalogue
