#ifndef D_SCANNER_PORT_H
#define D_SCANNER_PORT_H

#include <QObject>

#include <memory>

#include "d_pseudo_terminal.h"

// A barcode scanner in serial mode beside the tool: a pseudo-terminal behind a symlink, to
// which each scanned code is written followed by CR LF. Unplugged, it is back 1 s later on a
// new port, the symlink pointing to it.
class DScannerPort : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;
    ~DScannerPort() override;

    bool start(const QString& linkPath, QString* error);
    void scan(const QByteArray& code);
    void unplug();

private:
    bool plug(QString* error);

    QString m_linkPath;
    std::unique_ptr<DPseudoTerminal> m_port;
};

#endif // D_SCANNER_PORT_H
