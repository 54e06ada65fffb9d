// SPDX-License-Identifier: MIT
// Which client configuration vorn finds, and what it says when none.

#include "ConfigDiscovery.h"
#include "TestFiles.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

class EnvironmentGuard {
public:
    EnvironmentGuard()
        : m_saved(qgetenv("NUBRA_CONFIG"))
        , m_wasSet(qEnvironmentVariableIsSet("NUBRA_CONFIG"))
    {
    }
    ~EnvironmentGuard()
    {
        if (m_wasSet)
            qputenv("NUBRA_CONFIG", m_saved);
        else
            qunsetenv("NUBRA_CONFIG");
    }

private:
    QByteArray m_saved;
    bool m_wasSet;
};

} // namespace

TEST(ConfigDiscovery, explicitFileThenEnvironmentThenDefault)
{
    EnvironmentGuard guard;
    QTemporaryDir dir;
    const QString present = dir.filePath("config.json");
    ASSERT_TRUE(VornTest::writeFile(present, "{}"));
    const QString absent = dir.filePath("missing.json");

    struct Case {
        const char* name;
        QString explicitFile;
        QString environment; // empty: unset
        bool ok;
        const char* origin;
        QString path;
    };
    const QList<Case> cases{
        {"--config wins over the environment", present, absent, true, "--config", present},
        {"--config that does not exist", absent, present, false, "--config", absent},
        {"--config naming a folder", dir.path(), QString(), false, "--config", dir.path()},
        {"environment", QString(), present, true, "NUBRA_CONFIG", present},
        {"environment naming a missing file", QString(), absent, false, "NUBRA_CONFIG", absent},
        {"nothing set: the file beside the application", QString(), QString(), false, "default location",
         ConfigDiscovery::defaultPath()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.environment.isEmpty())
            qunsetenv("NUBRA_CONFIG");
        else
            qputenv("NUBRA_CONFIG", c.environment.toLocal8Bit());
        const ConfigDiscovery::Located located = ConfigDiscovery::locate(c.explicitFile);
        EXPECT_EQ(located.ok(), c.ok) << located.error.toStdString();
        EXPECT_EQ(located.origin, QString::fromLatin1(c.origin));
        EXPECT_EQ(located.path, c.path);
        if (!c.ok) {
            EXPECT_TRUE(located.error.startsWith("no cloud configured")) << located.error.toStdString();
            EXPECT_TRUE(located.error.contains("--config")) << located.error.toStdString();
        }
    }
}

TEST(ConfigDiscovery, explicitFileIsHandedToTheHelperThroughTheEnvironment)
{
    EnvironmentGuard guard;
    QTemporaryDir dir;
    const QString present = dir.filePath("config.json");
    ASSERT_TRUE(VornTest::writeFile(present, {}));
    qunsetenv("NUBRA_CONFIG");
    ASSERT_TRUE(ConfigDiscovery::locate(present).ok());
    EXPECT_EQ(qEnvironmentVariable("NUBRA_CONFIG"), present);

    // A refused --config leaves the environment alone.
    qputenv("NUBRA_CONFIG", "before");
    EXPECT_FALSE(ConfigDiscovery::locate(dir.filePath("missing.json")).ok());
    EXPECT_EQ(qEnvironmentVariable("NUBRA_CONFIG"), "before");
}
