#pragma once

#include "support/rows.h"
#include "support/scratch_device.h"

#include <QLoggingCategory>

/// A test program on a scratch device: every test begins with an empty one.
class DeviceTest : public QObject
{
    Q_OBJECT

protected slots:
    void initTestCase()
    {
        // Qt warns of every statement on a connection that is not open.
        QLoggingCategory::setFilterRules("default.warning=false");
    }
    virtual void init() { device = std::make_unique<ScratchDevice>(); }
    void cleanup() { device.reset(); }

protected:
    /// Starts the migrator and discards what it logs at its start.
    DatabaseMigrator &start(const QStringList &arguments = {})
    {
        DatabaseMigrator &migrator = device->start(arguments);
        device->takeLog();
        return migrator;
    }

    std::unique_ptr<ScratchDevice> device;
};
