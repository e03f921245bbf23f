#pragma once

#include "support/scratch_device.h"

#include <QLoggingCategory>
#include <QtTest>

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
    std::unique_ptr<ScratchDevice> device;
};
