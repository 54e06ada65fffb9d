// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace devcloud {

class Store;

// Demo accounts everyone may use against a dev cloud.
constexpr const char* kDemoAccount = "demo@vorn.example";
constexpr const char* kDemoPassword = "scan3d!";
constexpr qint64 kDemoUserId = 1001;
constexpr const char* kDemoDeviceSn = "VS2024000123";

bool createSchema(Store& store, QString* error);
// Fills an empty database with demo users, devices and scan packages; leaves
// a database that already has users alone.
bool seedDemoData(Store& store, QString* error);

} // namespace devcloud
