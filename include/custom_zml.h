/* SPDX-License-Identifier: BSD-3-Clause */
/* Umbrella header: every family of custom_zml. */
#ifndef CUSTOM_ZML_H
#define CUSTOM_ZML_H

#include "zml_cblas.h"
#include "zml_service.h"

#endif /* CUSTOM_ZML_H */
