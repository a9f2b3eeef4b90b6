// SPDX-License-Identifier: BSD-3-Clause
// The natural and decimal logarithms, one element at a time: the kernel of
// the folders without vector logarithms, and the path of the vector kernels
// for zeros, negative, subnormal and non-finite arguments. Templated on the
// folder's ops as a tag so that each folder's instance is its own function.
//
// x = 2^k z with z within half a grid step of g_i (see the table), and
// ln x = k ln 2 - ln c_i + log1p(r), r = z c_i - 1, |r| < 2^-8. The product
// z c_i is kept exactly as two doubles so that r carries no rounding; the
// large parts are summed with their rounding errors, and log1p(r) - r is
// the Taylor polynomial to degree 7 (truncation below 2^-59 relative).
#pragma once

#include <cstdint>
#include <cstring>
#include <limits>

#include "vml/kernels/vml_kernel.h"

namespace zml::vml::algo {

// Rows of {c_i, -ln c_i leading, -ln c_i remainder, 0} from
// tools/vml_log_table.py; the padding makes a row one 32-byte vector load.
alignas(64) inline constexpr double kLogTable[128][4] = {
    {0x1.6a13cd1537290p+0, -0x1.630030b3aac48p-2, -0x1.ee0c6728fffccp-56, 0.0},
    {0x1.6816816816817p+0, -0x1.5d5bddf595f31p-2, -0x1.d5f75b9a23ae4p-59, 0.0},
    {0x1.661ec6a5122f9p+0, -0x1.57bf753c8d1fbp-2, 0x1.2908d15f88b63p-57, 0.0},
    {0x1.642c8590b2164p+0, -0x1.522ae0738a3d7p-2, -0x1.3840b263acb43p-56, 0.0},
    {0x1.623fa77016240p+0, -0x1.4c9e09e172c3dp-2, 0x1.123615b147a5fp-58, 0.0},
    {0x1.6058160581606p+0, -0x1.4718dc271c41cp-2, -0x1.d8fb4c14c56eep-56, 0.0},
    {0x1.5e75bb8d015e7p+0, -0x1.419b423d5e8c6p-2, -0x1.5b7648704e721p-58, 0.0},
    {0x1.5c9882b931057p+0, -0x1.3c25277333183p-2, -0x1.152d81af5713ap-56, 0.0},
    {0x1.5ac056b015ac0p+0, -0x1.36b6776be1116p-2, 0x1.324f0e8838590p-58, 0.0},
    {0x1.58ed2308158edp+0, -0x1.314f1e1d35ce3p-2, -0x1.22966f61a3c23p-56, 0.0},
    {0x1.571ed3c506b3ap+0, -0x1.2bef07cdc9355p-2, 0x1.22dad7fd86088p-56, 0.0},
    {0x1.5555555555555p+0, -0x1.269621134db91p-2, -0x1.e0efadd9db02ap-56, 0.0},
    {0x1.5390948f40febp+0, -0x1.214456d0eb8d5p-2, 0x1.50a2dca28b3edp-58, 0.0},
    {0x1.51d07eae2f815p+0, -0x1.1bf99635a6b95p-2, 0x1.e9575c2124912p-56, 0.0},
    {0x1.5015015015015p+0, -0x1.16b5ccbacfb73p-2, -0x1.56fbd28b40935p-56, 0.0},
    {0x1.4e5e0a72f0539p+0, -0x1.1178e8227e47ap-2, -0x1.b8ce2d07f1cb7p-56, 0.0},
    {0x1.4cab88725af6ep+0, -0x1.0c42d676162e2p-2, 0x1.5a74e18a8bb85p-56, 0.0},
    {0x1.4afd6a052bf5bp+0, -0x1.07138604d5864p-2, 0x1.24e912b16ec8bp-60, 0.0},
    {0x1.49539e3b2d067p+0, -0x1.01eae5626c691p-2, -0x1.d9f5bd0b5b348p-57, 0.0},
    {0x1.47ae147ae147bp+0, -0x1.f991c6cb3b37ap-3, -0x1.ecca0cdf30143p-58, 0.0},
    {0x1.460cbc7f5cf9ap+0, -0x1.ef5ade4dcffe5p-3, -0x1.7754d2238f75fp-58, 0.0},
    {0x1.446f86562d9fbp+0, -0x1.e530effe71013p-3, 0x1.f7627ef82f3f0p-57, 0.0},
    {0x1.42d6625d51f87p+0, -0x1.db13db0d48941p-3, 0x1.8af715b0349a4p-57, 0.0},
    {0x1.4141414141414p+0, -0x1.d1037f2655e7bp-3, 0x1.3f3adb7b71cbcp-58, 0.0},
    {0x1.3fb013fb013fbp+0, -0x1.c6ffbc6f00f71p-3, 0x1.ae58b2c57a4a5p-57, 0.0},
    {0x1.3e22cbce4a902p+0, -0x1.bd087383bd8aap-3, 0x1.1165504ad749ep-59, 0.0},
    {0x1.3c995a47babe7p+0, -0x1.b31d8575bce3bp-3, 0x1.0d4eace1aa537p-59, 0.0},
    {0x1.3b13b13b13b14p+0, -0x1.a93ed3c8ad9e5p-3, -0x1.bcafa9de97202p-57, 0.0},
    {0x1.3991c2c187f63p+0, -0x1.9f6c407089663p-3, 0x1.52979a7e86605p-57, 0.0},
    {0x1.3813813813814p+0, -0x1.95a5adcf70182p-3, -0x1.8a16283fdbd1cp-57, 0.0},
    {0x1.3698df3de0748p+0, -0x1.8beafeb38fe8fp-3, 0x1.54aae92cd0b87p-59, 0.0},
    {0x1.3521cfb2b78c1p+0, -0x1.823c16551a3c0p-3, -0x1.6dcd318f4187ep-57, 0.0},
    {0x1.33ae45b57bcb2p+0, -0x1.7898d85444c74p-3, -0x1.be3dbaf3ec804p-60, 0.0},
    {0x1.323e34a2b10bfp+0, -0x1.6f0128b756ab9p-3, 0x1.37967087859b9p-59, 0.0},
    {0x1.30d190130d190p+0, -0x1.6574ebe8c1339p-3, -0x1.c5961e173bc82p-57, 0.0},
    {0x1.2f684bda12f68p+0, -0x1.5bf406b543db0p-3, 0x1.1f5b44c0df7f7p-61, 0.0},
    {0x1.2e025c04b8097p+0, -0x1.527e5e4a1b58dp-3, 0x1.b8d4b411cadffp-60, 0.0},
    {0x1.2c9fb4d812ca0p+0, -0x1.4913d8333b563p-3, 0x1.0d5604930f137p-58, 0.0},
    {0x1.2b404ad012b40p+0, -0x1.3fb45a59928cap-3, 0x1.d87e6a354d057p-57, 0.0},
    {0x1.29e4129e4129ep+0, -0x1.365fcb0159014p-3, -0x1.bea08d2dca256p-57, 0.0},
    {0x1.288b01288b013p+0, -0x1.2d1610c86813dp-3, -0x1.d997036941a6dp-60, 0.0},
    {0x1.27350b8812735p+0, -0x1.23d712a49c201p-3, -0x1.51c7e9efae297p-57, 0.0},
    {0x1.25e22708092f1p+0, -0x1.1aa2b7e23f729p-3, -0x1.6e44389934420p-57, 0.0},
    {0x1.2492492492492p+0, -0x1.1178e8227e47ap-3, 0x1.0e63a5f01c693p-58, 0.0},
    {0x1.23456789abcdfp+0, -0x1.08598b59e3a07p-3, 0x1.fd7009902bf32p-57, 0.0},
    {0x1.21fb78121fb78p+0, -0x1.fe89139dbd565p-4, 0x1.ac9f4215f9394p-58, 0.0},
    {0x1.20b470c67c0d9p+0, -0x1.ec739830a1126p-4, -0x1.eea033743f95bp-58, 0.0},
    {0x1.1f7047dc11f70p+0, -0x1.da7276384469ep-4, -0x1.401fa71733017p-58, 0.0},
    {0x1.1e2ef3b3fb874p+0, -0x1.c885801bc4b20p-4, 0x1.5c734aa6598fcp-58, 0.0},
    {0x1.1cf06ada2811dp+0, -0x1.b6ac88dad5b1dp-4, 0x1.002bf768e52d0p-58, 0.0},
    {0x1.1bb4a4046ed29p+0, -0x1.a4e7640b1bc38p-4, 0x1.9b5ca203e4259p-58, 0.0},
    {0x1.1a7b9611a7b96p+0, -0x1.9335e5d594988p-4, 0x1.478a85704ccb7p-58, 0.0},
    {0x1.19453808ca29cp+0, -0x1.8197e2f40e3f0p-4, 0x1.230690020895fp-59, 0.0},
    {0x1.1811811811812p+0, -0x1.700d30aeac0e8p-4, -0x1.a36a677b4c8b2p-59, 0.0},
    {0x1.16e0689427379p+0, -0x1.5e95a4d9791cdp-4, 0x1.4c78ba3a3baf6p-58, 0.0},
    {0x1.15b1e5f75270dp+0, -0x1.4d3115d207eacp-4, -0x1.da7d0b1e10b2fp-60, 0.0},
    {0x1.1485f0e0acd3bp+0, -0x1.3bdf5a7d1ee5ep-4, -0x1.f52eda76b68acp-60, 0.0},
    {0x1.135c81135c811p+0, -0x1.2aa04a44717a1p-4, -0x1.aea2c72d05c08p-58, 0.0},
    {0x1.12358e75d3033p+0, -0x1.1973bd1465561p-4, 0x1.7aac1b3d35680p-58, 0.0},
    {0x1.1111111111111p+0, -0x1.08598b59e3a06p-4, 0x1.dd7009902bf32p-58, 0.0},
    {0x1.0fef010fef011p+0, -0x1.eea31c006b87cp-5, 0x1.7c9f9276f6cd8p-60, 0.0},
    {0x1.0ecf56be69c90p+0, -0x1.ccb73cdddb2d0p-5, 0x1.e48fb0500efd5p-59, 0.0},
    {0x1.0db20a88f4696p+0, -0x1.aaef2d0fb1108p-5, -0x1.68d4eed0b82aep-59, 0.0},
    {0x1.0c9714fbcda3bp+0, -0x1.894aa149fb34bp-5, 0x1.2ba0b44cfaee5p-59, 0.0},
    {0x1.0b7e6ec259dc8p+0, -0x1.67c94f2d4bb65p-5, -0x1.0413e6505e5f9p-59, 0.0},
    {0x1.0a6810a6810a7p+0, -0x1.466aed42de3f9p-5, 0x1.9badefe942718p-60, 0.0},
    {0x1.0953f39010954p+0, -0x1.252f32f8d1840p-5, -0x1.ae021b67a9ba8p-61, 0.0},
    {0x1.0842108421084p+0, -0x1.0415d89e74440p-5, -0x1.c05cf1d753621p-59, 0.0},
    {0x1.073260a47f7c6p+0, -0x1.c63d2ec14aad7p-6, -0x1.8fe7acbca131dp-63, 0.0},
    {0x1.0624dd2f1a9fcp+0, -0x1.8492528c8cac5p-6, 0x1.d192d0619fa68p-60, 0.0},
    {0x1.05197f7d73404p+0, -0x1.432a925980cbcp-6, 0x1.8cdaf39004193p-60, 0.0},
    {0x1.0410410410410p+0, -0x1.0205658935837p-6, -0x1.27c8e8416e717p-60, 0.0},
    {0x1.03091b51f5e1ap+0, -0x1.82448a388a283p-7, -0x1.04b16137f0970p-62, 0.0},
    {0x1.0204081020408p+0, -0x1.010157588de69p-7, -0x1.46662d417cecep-62, 0.0},
    {0x1.0101010101010p+0, -0x1.0080559588b25p-8, -0x1.f96638cf63675p-62, 0.0},
    {0x1.0000000000000p+0, 0x0.0p+0, 0x0.0p+0, 0.0},
    {0x1.fc07f01fc07f0p-1, 0x1.fe02a6b106799p-8, -0x1.e44b7e3711e7fp-67, 0.0},
    {0x1.f81f81f81f820p-1, 0x1.fc0a8b0fc03c4p-7, -0x1.83092c5964281p-62, 0.0},
    {0x1.f44659e4a4271p-1, 0x1.7b91b07d5b126p-6, -0x1.6d80ab38e9430p-62, 0.0},
    {0x1.f07c1f07c1f08p-1, 0x1.f829b0e7832f8p-6, 0x1.33e3f04f1ef25p-60, 0.0},
    {0x1.ecc07b301ecc0p-1, 0x1.39e87b9febd68p-5, -0x1.5bfa937f551b7p-59, 0.0},
    {0x1.e9131abf0b767p-1, 0x1.77458f632dcffp-5, 0x1.8d3ca87b92968p-63, 0.0},
    {0x1.e573ac901e574p-1, 0x1.b42dd711971b9p-5, 0x1.0a34531f67db5p-59, 0.0},
    {0x1.e1e1e1e1e1e1ep-1, 0x1.f0a30c01162a8p-5, 0x1.85f325c5bbacdp-59, 0.0},
    {0x1.de5d6e3f8868ap-1, 0x1.16536eea37ae3p-4, 0x1.2189705cf74cap-58, 0.0},
    {0x1.dae6076b981dbp-1, 0x1.341d7961bd1d0p-4, -0x1.3599f227becbbp-58, 0.0},
    {0x1.d77b654b82c34p-1, 0x1.51b073f06183cp-4, -0x1.5b61c65e5741ap-58, 0.0},
    {0x1.d41d41d41d41dp-1, 0x1.6f0d28ae56b4ep-4, -0x1.20db323097324p-59, 0.0},
    {0x1.d0cb58f6ec074p-1, 0x1.8c345d6319b23p-4, -0x1.294d2f5668495p-58, 0.0},
    {0x1.cd85689039b0bp-1, 0x1.a926d3a4ad562p-4, -0x1.d7a16eab1e2adp-59, 0.0},
    {0x1.ca4b3055ee191p-1, 0x1.c5e548f5bc743p-4, 0x1.2eb0bf7c0b0d9p-59, 0.0},
    {0x1.c71c71c71c71cp-1, 0x1.e27076e2af2eap-4, -0x1.61578001e015ap-60, 0.0},
    {0x1.c3f8f01c3f8f0p-1, 0x1.fec9131dbeabcp-4, -0x1.5746b9981b36cp-58, 0.0},
    {0x1.c0e070381c0e0p-1, 0x1.0d77e7cd08e5bp-3, 0x1.9a5dc5e9030adp-57, 0.0},
    {0x1.bdd2b899406f7p-1, 0x1.1b72ad52f67a2p-3, -0x1.fbe7ee5c69946p-57, 0.0},
    {0x1.bacf914c1bad0p-1, 0x1.29552f81ff521p-3, 0x1.301771c407dc0p-57, 0.0},
    {0x1.b7d6c3dda338bp-1, 0x1.371fc201e8f75p-3, 0x1.e6cb62af18a02p-62, 0.0},
    {0x1.b4e81b4e81b4fp-1, 0x1.44d2b6ccb7d1cp-3, 0x1.7d3d950f87e23p-59, 0.0},
    {0x1.b2036406c80d9p-1, 0x1.526e5e3a1b438p-3, -0x1.546ff8a470d3ap-57, 0.0},
    {0x1.af286bca1af28p-1, 0x1.5ff3070a793d6p-3, -0x1.bc60efafc6f6cp-58, 0.0},
    {0x1.ac5701ac5701bp-1, 0x1.6d60fe719d21bp-3, 0x1.d551d97132e87p-57, 0.0},
    {0x1.a98ef606a63bep-1, 0x1.7ab890210d907p-3, -0x1.1072534a57e7dp-57, 0.0},
    {0x1.a6d01a6d01a6dp-1, 0x1.87fa06520c911p-3, -0x1.9f7fdbfa08d9ap-57, 0.0},
    {0x1.a41a41a41a41ap-1, 0x1.9525a9cf456b6p-3, -0x1.26fb3e2b1d1dap-57, 0.0},
    {0x1.a16d3f97a4b02p-1, 0x1.a23bc1fe2b561p-3, 0x1.24dc46c1ea664p-57, 0.0},
    {0x1.9ec8e951033d9p-1, 0x1.af3c94e80bff3p-3, 0x1.a3398064df33ep-57, 0.0},
    {0x1.9c2d14ee4a102p-1, 0x1.bc286742d8cd4p-3, 0x1.cfce744870f57p-58, 0.0},
    {0x1.999999999999ap-1, 0x1.c8ff7c79a9a20p-3, -0x1.4f689f8434011p-57, 0.0},
    {0x1.970e4f80cb872p-1, 0x1.d5c216b4fbb94p-3, -0x1.a37794d03657dp-58, 0.0},
    {0x1.948b0fcd6e9e0p-1, 0x1.e27076e2af2e8p-3, -0x1.61578001e015ep-59, 0.0},
    {0x1.920fb49d0e229p-1, 0x1.ef0adcbdc5935p-3, 0x1.e8637950dc20dp-57, 0.0},
    {0x1.8f9c18f9c18fap-1, 0x1.fb9186d5e3e29p-3, 0x1.355519b0de535p-57, 0.0},
    {0x1.8d3018d3018d3p-1, 0x1.0402594b4d041p-2, -0x1.08ec217a5022dp-57, 0.0},
    {0x1.8acb90f6bf3aap-1, 0x1.0a324e27390e2p-2, 0x1.bdcfde8061c03p-56, 0.0},
    {0x1.886e5f0abb04ap-1, 0x1.1058bf9ae4ad4p-2, 0x1.3f415699663ecp-63, 0.0},
    {0x1.8618618618618p-1, 0x1.1675cababa60fp-2, 0x1.ce63eab883727p-61, 0.0},
    {0x1.83c977ab2beddp-1, 0x1.1c898c16999fbp-2, 0x1.9f1a39d500e3cp-56, 0.0},
    {0x1.8181818181818p-1, 0x1.22941fbcf7966p-2, -0x1.dbd7ac258a2bdp-58, 0.0},
    {0x1.7f405fd017f40p-1, 0x1.2895a13de86a4p-2, 0x1.7ad24c13f040fp-56, 0.0},
    {0x1.7d05f417d05f4p-1, 0x1.2e8e2bae11d31p-2, -0x1.1e99b72bd7bf2p-57, 0.0},
    {0x1.7ad2208e0ecc3p-1, 0x1.347dd9a987d56p-2, -0x1.16ea62c048cfbp-56, 0.0},
    {0x1.78a4c8178a4c8p-1, 0x1.3a64c556945eap-2, 0x1.cbcd735d03424p-60, 0.0},
    {0x1.767dce434a9b1p-1, 0x1.404308686a7e4p-2, -0x1.f79f6c1059cdbp-57, 0.0},
    {0x1.745d1745d1746p-1, 0x1.4618bc21c5ec2p-2, -0x1.7a42642661c62p-61, 0.0},
    {0x1.724287f46debcp-1, 0x1.4be5f957778a1p-2, -0x1.4b366b609027ap-58, 0.0},
    {0x1.702e05c0b8170p-1, 0x1.51aad872df82ep-2, -0x1.d8db0a7cc1543p-56, 0.0},
    {0x1.6e1f76b4337c7p-1, 0x1.5767717455a6cp-2, -0x1.fb2a49af933e8p-57, 0.0},
    {0x1.6c16c16c16c17p-1, 0x1.5d1bdbf5809cap-2, -0x1.7dc9c7c23801fp-56, 0.0},
};
// The 32-row table of the kernels that hold it in registers: grid points
// 0x3FE6800000000000 + i * 2^47 (0.703125 up to 1.375), |r| up to 2^-6.
inline constexpr double kLogTable32[32][3] = {
    {0x1.6c16c16c16c17p+0, -0x1.68ac83e9c6a15p-2, 0x1.acd8a9145ff44p-57},
    {0x1.642c8590b2164p+0, -0x1.522ae0738a3d7p-2, -0x1.3840b263acb43p-56},
    {0x1.5c9882b931057p+0, -0x1.3c25277333183p-2, -0x1.152d81af5713ap-56},
    {0x1.5555555555555p+0, -0x1.269621134db91p-2, -0x1.e0efadd9db02ap-56},
    {0x1.4e5e0a72f0539p+0, -0x1.1178e8227e47ap-2, -0x1.b8ce2d07f1cb7p-56},
    {0x1.47ae147ae147bp+0, -0x1.f991c6cb3b37ap-3, -0x1.ecca0cdf30143p-58},
    {0x1.4141414141414p+0, -0x1.d1037f2655e7bp-3, 0x1.3f3adb7b71cbcp-58},
    {0x1.3b13b13b13b14p+0, -0x1.a93ed3c8ad9e5p-3, -0x1.bcafa9de97202p-57},
    {0x1.3521cfb2b78c1p+0, -0x1.823c16551a3c0p-3, -0x1.6dcd318f4187ep-57},
    {0x1.2f684bda12f68p+0, -0x1.5bf406b543db0p-3, 0x1.1f5b44c0df7f7p-61},
    {0x1.29e4129e4129ep+0, -0x1.365fcb0159014p-3, -0x1.bea08d2dca256p-57},
    {0x1.2492492492492p+0, -0x1.1178e8227e47ap-3, 0x1.0e63a5f01c693p-58},
    {0x1.1f7047dc11f70p+0, -0x1.da7276384469ep-4, -0x1.401fa71733017p-58},
    {0x1.1a7b9611a7b96p+0, -0x1.9335e5d594988p-4, 0x1.478a85704ccb7p-58},
    {0x1.15b1e5f75270dp+0, -0x1.4d3115d207eacp-4, -0x1.da7d0b1e10b2fp-60},
    {0x1.1111111111111p+0, -0x1.08598b59e3a06p-4, 0x1.dd7009902bf32p-58},
    {0x1.0c9714fbcda3bp+0, -0x1.894aa149fb34bp-5, 0x1.2ba0b44cfaee5p-59},
    {0x1.0842108421084p+0, -0x1.0415d89e74440p-5, -0x1.c05cf1d753621p-59},
    {0x1.0410410410410p+0, -0x1.0205658935837p-6, -0x1.27c8e8416e717p-60},
    {0x1.0000000000000p+0, 0x0.0p+0, 0x0.0p+0},
    {0x1.f07c1f07c1f08p-1, 0x1.f829b0e7832f8p-6, 0x1.33e3f04f1ef25p-60},
    {0x1.e1e1e1e1e1e1ep-1, 0x1.f0a30c01162a8p-5, 0x1.85f325c5bbacdp-59},
    {0x1.d41d41d41d41dp-1, 0x1.6f0d28ae56b4ep-4, -0x1.20db323097324p-59},
    {0x1.c71c71c71c71cp-1, 0x1.e27076e2af2eap-4, -0x1.61578001e015ap-60},
    {0x1.bacf914c1bad0p-1, 0x1.29552f81ff521p-3, 0x1.301771c407dc0p-57},
    {0x1.af286bca1af28p-1, 0x1.5ff3070a793d6p-3, -0x1.bc60efafc6f6cp-58},
    {0x1.a41a41a41a41ap-1, 0x1.9525a9cf456b6p-3, -0x1.26fb3e2b1d1dap-57},
    {0x1.999999999999ap-1, 0x1.c8ff7c79a9a20p-3, -0x1.4f689f8434011p-57},
    {0x1.8f9c18f9c18fap-1, 0x1.fb9186d5e3e29p-3, 0x1.355519b0de535p-57},
    {0x1.8618618618618p-1, 0x1.1675cababa60fp-2, 0x1.ce63eab883727p-61},
    {0x1.7d05f417d05f4p-1, 0x1.2e8e2bae11d31p-2, -0x1.1e99b72bd7bf2p-57},
    {0x1.745d1745d1746p-1, 0x1.4618bc21c5ec2p-2, -0x1.7a42642661c62p-61},
};
// ln 2 with 40 significant bits, so k ln 2 is exact for every exponent k.
inline constexpr double kLn2Hi = 0x1.62e42fefa4000p-1;
inline constexpr double kLn2Lo = -0x1.8432a1b0e2634p-43;
inline constexpr double kLog10eHi = 0x1.bcb7b1526e50ep-2;
inline constexpr double kLog10eLo = 0x1.95355baaafad3p-57;
// Added to the bits of x: rounds the mantissa to the grid of 2^bits rows
// and moves the grid's lower end to the exponent bias, so that bits 52 up
// are k + 1023 and the bits below them the row.
constexpr int64_t log_shift(int bits) {
  const int64_t low = bits == 7 ? 0x3FE6A00000000000 : 0x3FE6800000000000;
  return 0x3FF0000000000000 - low + (int64_t{1} << (51 - bits));
}
inline constexpr int64_t kLogShift = log_shift(7);
// Taylor coefficients of (log1p(r) - r) / r^2.
inline constexpr double kLogPoly[6] = {-0.5, 1.0 / 3, -0.25, 0.2, -1.0 / 6, 1.0 / 7};
// For the 32-row table's wider |r| <= 2^-6, near-minimax fits from the
// tool, lowest degree first, per class: high, low, enhanced performance.
inline constexpr double kLogPoly32Ha[8] = {
    -0x1.0000000000000p-1, 0x1.5555555555555p-2, -0x1.0000000001a5cp-2, 0x1.999999999c930p-3,
    -0x1.5555545047edfp-3, 0x1.249248380c432p-3, -0x1.0019da999df0ap-3, 0x1.c74b62c8a078ap-4};
inline constexpr double kLogPoly32La[7] = {
    -0x1.0000000000000p-1, 0x1.5555555556225p-2, -0x1.0000000000b6fp-2, 0x1.999998ce915bdp-3,
    -0x1.5555549f3ff6dp-3, 0x1.24ab6bb298caap-3, -0x1.001696edc0131p-3};
inline constexpr double kLogPoly32Ep[3] = {-0x1.0000000006622p-1, 0x1.555f06ef62dcdp-2,
                                           -0x1.000810da97b47p-2};

inline double from_bits(int64_t b) {
  double d;
  std::memcpy(&d, &b, sizeof d);
  return d;
}
inline int64_t to_bits(double d) {
  int64_t b;
  std::memcpy(&b, &d, sizeof b);
  return b;
}

// a b = hi + lo exactly (Dekker), without fused multiply-add, which the
// baseline folders cannot assume.
inline double two_prod(double a, double b, double* lo) {
  constexpr double kSplit = 134217729.0;  // 2^27 + 1
  const double hi = a * b;
  const double ta = kSplit * a, tb = kSplit * b;
  const double ah = ta - (ta - a), bh = tb - (tb - b);
  const double al = a - ah, bl = b - bh;
  *lo = ((ah * bh - hi) + ah * bl + al * bh) + al * bl;
  return hi;
}

template <class Tag, bool kLog10>
double log_one(double x) {
  int64_t adjust = 0;
  if (!(x >= std::numeric_limits<double>::min() && x <= std::numeric_limits<double>::max())) {
    if (x != x) return x + x;
    if (x == 0.0) {
      report_status(kSing);
      return -std::numeric_limits<double>::infinity();
    }
    if (x < 0.0) {
      report_status(kErrDom);
      return std::numeric_limits<double>::quiet_NaN();
    }
    if (x > 0.0 && x == std::numeric_limits<double>::infinity()) return x;
    x *= 0x1p52;  // subnormal: scaled to a normal number
    adjust = 52;
  }
  const int64_t ix = to_bits(x);
  const int64_t u = ix + kLogShift;
  const int64_t kb = u >> 52;
  const double* row = kLogTable[(u >> 45) & 127];
  const double z = from_bits(ix - (u & ~int64_t{0xFFFFFFFFFFFFF}) + 0x3FF0000000000000);
  const double kf = static_cast<double>(kb - 1023 - adjust);
  double pl;
  const double ph = two_prod(z, row[0], &pl);
  const double r = ph - 1.0;  // exact: ph is within 2^-8 of 1
  const double a = kf * kLn2Hi;
  const double s1 = a + row[1];
  const double e1 = row[1] - (s1 - a);  // |a| >= |row[1]| unless a = 0
  const double s2 = s1 + r;
  const double bb = s2 - s1;
  const double e2 = (s1 - (s2 - bb)) + (r - bb);
  double q = kLogPoly[5];
  for (int d = 4; d >= 0; --d) q = q * r + kLogPoly[d];
  const double tail = r * r * q + (kf * kLn2Lo + (row[2] + e1 + e2 + (pl - pl * r)));
  if constexpr (!kLog10) {
    return s2 + tail;
  } else {
    double lo;
    const double hi = two_prod(s2, kLog10eHi, &lo);
    return hi + (lo + s2 * kLog10eLo + tail * kLog10eHi);
  }
}

template <class Tag, bool kLog10>
void log_loop(int32_t n, const double* a, double* y) {
  for (int32_t i = 0; i < n; ++i) y[i] = log_one<Tag, kLog10>(a[i]);
}

}  // namespace zml::vml::algo
