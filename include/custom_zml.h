/* SPDX-License-Identifier: BSD-3-Clause */
/* Umbrella header: every family of custom_zml. */
#ifndef CUSTOM_ZML_H
#define CUSTOM_ZML_H

#include "zml_cblas.h"
#include "zml_dfti.h"
#include "zml_lapacke.h"
#include "zml_service.h"
#include "zml_sparse.h"
#include "zml_trust_region.h"
#include "zml_vml.h"
#include "zml_vsl.h"

#endif /* CUSTOM_ZML_H */
