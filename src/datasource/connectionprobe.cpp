#include "connectionprobe.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <QCoreApplication>

#include "modADO.h"
#include "sourceconnection.h"

namespace {

// Probe threads still running. Qt SQL's connection registry goes away when the program
// ends; a probe thread that touched it afterwards would crash the program on its way out,
// so the application waits for them (a bounded time: a driver may hang on a silent server).
std::mutex g_runningMutex;
std::condition_variable g_runningDone;
int g_running = 0;
bool g_waitRegistered = false;

void waitForProbes()
{
    std::unique_lock<std::mutex> lock(g_runningMutex);
    g_runningDone.wait_for(lock, std::chrono::seconds(30), [] { return g_running == 0; });
}

} // namespace

struct ConnectionProbe::State
{
    mutable std::mutex mutex;
    bool finished = false;
    bool abandoned = false;
    Result result;
};

ConnectionProbe::ConnectionProbe(const QString& conString) : m_state(std::make_shared<State>())
{
    {
        const std::lock_guard<std::mutex> lock(g_runningMutex);
        ++g_running;
        if (!g_waitRegistered && QCoreApplication::instance()) {
            qAddPostRoutine(waitForProbes);
            g_waitRegistered = true;
        }
    }
    std::thread([state = m_state, conString] {
        bool abandoned;
        {
            const std::lock_guard<std::mutex> lock(state->mutex);
            abandoned = state->abandoned;
        }
        Result result;
        // A probe given up on before it began never reaches the driver.
        if (!abandoned) {
            SourceConnection connection;
            if (connection.open(conString, result.message)) {
                result.ok = true;
                result.tableCount = static_cast<int>(UserTableNames(connection.database()).size());
            }
        }
        {
            const std::lock_guard<std::mutex> lock(state->mutex);
            state->result = result;
            state->finished = true;
        }
        {
            const std::lock_guard<std::mutex> lock(g_runningMutex);
            --g_running;
        }
        g_runningDone.notify_all();
    }).detach();
}

ConnectionProbe::~ConnectionProbe()
{
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    m_state->abandoned = true;
}

bool ConnectionProbe::finished() const
{
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->finished;
}

ConnectionProbe::Result ConnectionProbe::result() const
{
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->result;
}
