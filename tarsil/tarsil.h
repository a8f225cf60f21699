// The whole library in one include.
#pragma once

#include "tarsil/core/data_source.h"
#include "tarsil/core/device.h"
#include "tarsil/core/device_info.h"
#include "tarsil/core/errors.h"
#include "tarsil/core/frame.h"
#include "tarsil/core/marker.h"
#include "tarsil/core/mock_source.h"
#include "tarsil/core/version.h"
#include "tarsil/health/analysis.h"
#include "tarsil/health/certificate.h"
#include "tarsil/health/report.h"
#include "tarsil/recording/recorder.h"
#include "tarsil/recording/replayer.h"
#include "tarsil/serial/ports.h"
#include "tarsil/serial/reconnecting_source.h"
#include "tarsil/serial/serial_source.h"

/// Everything that the library offers to programs.
namespace tarsil {}
