#ifndef D_PTY_DEVICE_H
#define D_PTY_DEVICE_H

#include "d_pseudo_terminal.h"

#include <QByteArray>

// A device on a pseudo-terminal: the code under test opens slavePath() as its serial
// port, the test plays the device and keeps all it received. Closing it is the device vanishing.
class DPtyDevice
{
public:
    bool open(QString* error);
    QString slavePath() const;
    bool write(const QByteArray& bytes);
    QByteArray received() const;
    void close();

private:
    DPseudoTerminal m_terminal;
    QByteArray m_received;
};

#endif // D_PTY_DEVICE_H
