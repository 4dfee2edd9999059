#include "connectionprobe.h"

#include <mutex>
#include <thread>

#include "modADO.h"
#include "sourceconnection.h"

struct ConnectionProbe::State
{
    mutable std::mutex mutex;
    bool finished = false;
    Result result;
};

ConnectionProbe::ConnectionProbe(const QString& conString) : m_state(std::make_shared<State>())
{
    std::thread([state = m_state, conString] {
        Result result;
        {
            SourceConnection connection;
            if (connection.open(conString, result.message)) {
                result.ok = true;
                result.tableCount = static_cast<int>(UserTableNames(connection.database()).size());
            }
        }
        const std::lock_guard<std::mutex> lock(state->mutex);
        state->result = result;
        state->finished = true;
    }).detach();
}

ConnectionProbe::~ConnectionProbe() = default;

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
