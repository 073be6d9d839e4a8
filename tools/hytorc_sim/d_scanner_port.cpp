#include "d_scanner_port.h"

#include <QFile>
#include <QTimer>

namespace {
constexpr int c_replugMs = 1000;
}

DScannerPort::~DScannerPort()
{
    if (m_port)
        QFile::remove(m_linkPath);
}

bool DScannerPort::start(const QString& linkPath, QString* error)
{
    m_linkPath = linkPath;
    return linkPath.isEmpty() || plug(error);
}

void DScannerPort::scan(const QByteArray& code)
{
    if (!m_port) {
        qWarning("no scanner: start with --scanner-link PATH, or it is unplugged");
        return;
    }
    m_port->write(code + "\r\n");
}

void DScannerPort::unplug()
{
    if (!m_port)
        return;
    m_port.reset();
    qInfo("scanner unplugged, back in %d ms", c_replugMs);
    QTimer::singleShot(c_replugMs, this, [this] {
        QString error;
        if (!plug(&error))
            qCritical("cannot plug the scanner back: %s", qPrintable(error));
    });
}

bool DScannerPort::plug(QString* error)
{
    auto port = std::make_unique<DPseudoTerminal>();
    if (!port->open(error) || !port->linkAt(m_linkPath, error))
        return false;
    m_port = std::move(port);
    qInfo("scanner on %s", qPrintable(m_port->slavePath()));
    return true;
}
