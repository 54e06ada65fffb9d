// SPDX-License-Identifier: MIT
#pragma once

#include <Nubra/Error.h>

namespace Nubra {

// Maps a libmosquitto result (MOSQ_ERR_*) onto the client's error numbers.
Error::ErrorCode errorForMosquitto(int mosquittoResult);
// Maps a refused CONNACK (MQTT 3.1.1 return codes 1-5) onto the client's
// error numbers.
Error::ErrorCode errorForConnack(int returnCode);

} // namespace Nubra
