#pragma once

#include <QObject>

class QTimer;

namespace brassline::desktop {

// Drives the runtime's main run loop from the Qt event loop: queued tasks, delayed
// performs, timers and the end-of-turn observers (the undo manager's event groups) run on
// the GUI thread between Qt's own events. Claims RunLoop::main() for the calling thread.
class RunLoopDriver : public QObject {
    Q_OBJECT
public:
    explicit RunLoopDriver(QObject* parent = nullptr);
    // Runs turns until nothing is queued or due now; widgets call it after a step whose
    // effects they want to see at once.
    static void drain();

private:
    void tick();
    QTimer* m_timer;
};

}  // namespace brassline::desktop
