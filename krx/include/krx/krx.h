// The whole host SDK.
#pragma once

#include "krx/application.h"
#include "krx/math.h"
#include "krx/operator.h"
#include "krx/plugin.h"
#include "krx/property.h"
#include "krx/scene.h"
#include "krx/value.h"
