// SPDX-License-Identifier: MIT
#include "PrivateCloud.h"

#include <gtest/gtest.h>

#include <memory>

namespace VornTest {

namespace {

class PrivateCloudEnvironment : public ::testing::Environment {
public:
    explicit PrivateCloudEnvironment(QStringList args) : m_args(std::move(args)) {}
    void SetUp() override
    {
        cloud = std::make_unique<DevCloudProcess>(m_args);
        ASSERT_TRUE(cloud->start()) << cloud->output().toStdString();
        qputenv("NUBRA_CONFIG", cloud->configPath().toLocal8Bit());
        admin = std::make_unique<CloudAdmin>(cloud->baseUrl(), cloud->caFile());
    }
    void TearDown() override
    {
        admin.reset();
        cloud.reset();
    }
    std::unique_ptr<DevCloudProcess> cloud;
    std::unique_ptr<CloudAdmin> admin;

private:
    QStringList m_args;
};

PrivateCloudEnvironment* g_environment = nullptr;

} // namespace

bool usePrivateCloud(const QStringList& extraArgs)
{
    g_environment = new PrivateCloudEnvironment(extraArgs);
    ::testing::AddGlobalTestEnvironment(g_environment);
    return true;
}

DevCloudProcess& privateCloud() { return *g_environment->cloud; }
CloudAdmin& privateCloudAdmin() { return *g_environment->admin; }

} // namespace VornTest
