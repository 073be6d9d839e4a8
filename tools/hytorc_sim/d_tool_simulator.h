#ifndef D_TOOL_SIMULATOR_H
#define D_TOOL_SIMULATOR_H

#include <QObject>
#include <QRandomGenerator>
#include <QTimer>

#include <memory>

#include "d_byte_pacer.h"
#include "d_frame_writer.h"
#include "d_hcp_tool_link.h"
#include "d_pseudo_terminal.h"
#include "d_report_log.h"
#include "d_report_shaper.h"
#include "d_scanner_port.h"
#include "d_stdin_commands.h"
#include "d_tool_event_maker.h"
#include "d_tool_request_handler.h"

class DSimOptions;
class DToolState;

// The tool on a pseudo-terminal: owns the port (and the symlink to it), drops and
// reopens it, and sends tightening events on a period and on demand.
class DToolSimulator : public QObject
{
    Q_OBJECT

public:
    DToolSimulator(const DSimOptions& options, DToolState* state, QObject* parent = nullptr);
    ~DToolSimulator() override;

    bool start(QString* error);
    // Writes the tool's state and the reports sent to --record's file, if any.
    bool writeRecord(QString* error);
    // The scanner beside the tool (--scanner-link).
    DScannerPort* scanner() { return &m_scanner; }

public slots:
    void onCommand(DStdinCommands::EnCommand command);

private slots:
    void onDropRequested();
    void onReopenDue();
    void onEventPeriod();

private:
    bool openPort(QString* error);
    bool pointLink(QString* error);
    void removeLink();
    void sendEvent();
    void sendReport();
    void settleReports();

    const DSimOptions& m_options;
    DToolState* m_state;
    QRandomGenerator m_random;
    DToolRequestHandler m_handler;
    DToolEventMaker m_eventMaker;
    DReportShaper m_shaper;
    DReportLog m_reports;
    DBytePacer m_pacer;
    DFrameWriter m_writer;
    DHcpToolLink m_link;
    std::unique_ptr<DPseudoTerminal> m_port;
    QTimer m_eventTimer;
    QTimer m_junkTimer;
    DScannerPort m_scanner;
};

#endif // D_TOOL_SIMULATOR_H
