// Everything public in Trekcom.
#pragma once

#include "trekcom/TrekcomCtl.h"
#include "trekcom/cSAK.h"
#include "trekcom/cUSB.h"
#include "trekcom/events.h"
#include "trekcom/picture.h"
#include "trekcom/platform.h"
#include "trekcom/record_sink.h"
#include "trekcom/types.h"
#include "trekcom/usb_driver.h"
#include "trekcom/virtual_platform.h"
