#include "guard/measurements.h"
#include "guard/durable_file.h"

QJsonObject Measurements::toJson() const
{
    return {
        {"milliseconds", m_milliseconds},
        {"bytes", m_bytes},
        {"flushes", durable::flushesAskedFor()}};
}
