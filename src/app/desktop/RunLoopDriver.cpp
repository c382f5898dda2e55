#include "app/desktop/RunLoopDriver.h"

#include <QTimer>

#include "model/RunLoop.h"

namespace brassline::desktop {

namespace {

// Short enough that a perform posted by the model lands within a frame, long enough that
// an idle window costs no measurable processor time.
constexpr int kTickMilliseconds = 10;
// A task that keeps posting work must not starve Qt's own events.
constexpr int kMaximumTurnsPerTick = 64;

}  // namespace

RunLoopDriver::RunLoopDriver(QObject* parent) : QObject(parent), m_timer(new QTimer(this)) {
    RunLoop::main();
    connect(m_timer, &QTimer::timeout, this, &RunLoopDriver::tick);
    m_timer->start(kTickMilliseconds);
}

void RunLoopDriver::drain() {
    RunLoop& loop = RunLoop::main();
    for (int turn = 0; turn < kMaximumTurnsPerTick; ++turn) {
        loop.runOnce();
        if (!loop.hasPendingWork()) {
            return;
        }
    }
}

void RunLoopDriver::tick() {
    drain();
}

}  // namespace brassline::desktop
