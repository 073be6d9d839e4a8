#include "d_frame_writer.h"

#include "d_byte_pacer.h"
#include "d_sim_options.h"

#include <QRandomGenerator>

namespace {

// Long enough for the host to read a piece on its own before the next arrives.
const int c_splitPauseMs = 5;
const int c_junkPauseMs = 20;

}  // namespace

DFrameWriter::DFrameWriter(DBytePacer* pacer, QRandomGenerator* random, const DSimOptions& options)
    : m_pacer(pacer), m_random(random), m_options(options)
{
}

int DFrameWriter::writeFrame(const QByteArray& frame)
{
    QByteArray bytes = frame;
    if (chance(m_options.badChecksumPercent))
        bytes[bytes.size() - 1] = char(bytes.at(bytes.size() - 1) ^ 0x5A);
    if (chance(m_options.noisePercent))
        bytes.prepend(noise());
    const int copies = chance(m_options.duplicatePercent) ? 2 : 1;
    for (int copy = 0; copy < copies; ++copy)
        writeSplit(bytes);
    return copies;
}

void DFrameWriter::writeJunkBurst()
{
    // Mostly 0x00 and 0xFF, as a radio link spits out when it loses its carrier.
    const int length = 8 + int(m_random->bounded(17));
    QByteArray junk(length, '\0');
    for (int i = 0; i < length; ++i)
        junk[i] = m_random->bounded(2) ? char(0xFF) : '\0';
    for (int i = 0; i < length / 10; ++i)
        junk[int(m_random->bounded(length))] = char('0' + m_random->bounded(10));
    m_pacer->enqueueBurst(junk, c_junkPauseMs);
}

bool DFrameWriter::chance(int percent)
{
    return percent > 0 && int(m_random->bounded(100)) < percent;
}

QByteArray DFrameWriter::noise()
{
    QByteArray bytes;
    const int length = 1 + int(m_random->bounded(4));
    for (int i = 0; i < length; ++i)
        bytes.append(char('A' + m_random->bounded(26)));
    if (m_options.noiseWithNul)
        bytes.insert(int(m_random->bounded(bytes.size() + 1)), '\0');
    return bytes;
}

void DFrameWriter::writeSplit(const QByteArray& bytes)
{
    if (bytes.size() < 2 || !chance(m_options.splitPercent)) {
        m_pacer->enqueue(bytes);
        return;
    }
    const int pieces = 2 + int(m_random->bounded(qMin(3, bytes.size() - 1)));
    int start = 0;
    for (int piece = pieces; piece > 1; --piece) {
        // Leave at least one byte for each piece still to come.
        const int end = start + 1 + int(m_random->bounded(bytes.size() - start - piece + 1));
        m_pacer->enqueue(bytes.mid(start, end - start), c_splitPauseMs);
        start = end;
    }
    m_pacer->enqueue(bytes.mid(start));
}
