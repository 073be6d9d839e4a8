#ifndef D_FRAME_WRITER_H
#define D_FRAME_WRITER_H

#include <QByteArray>

class DBytePacer;
class DSimOptions;
class QRandomGenerator;

// Hands the tool's frames to the pacer, spoilt on the way as the fault options ask:
// noise before a frame, a wrong checksum, a frame cut into several writes, a frame
// written twice, and bursts of junk.
class DFrameWriter
{
public:
    DFrameWriter(DBytePacer* pacer, QRandomGenerator* random, const DSimOptions& options);

    // Returns how many copies went out (2 when duplicated).
    int writeFrame(const QByteArray& frame);
    void writeJunkBurst();

private:
    bool chance(int percent);
    QByteArray noise();
    void writeSplit(const QByteArray& bytes);

    DBytePacer* m_pacer;
    QRandomGenerator* m_random;
    const DSimOptions& m_options;
};

#endif // D_FRAME_WRITER_H
