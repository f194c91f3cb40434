// The one place that says which version this is; the version blocks of all programs and modules take it from
// here.
#pragma once

#define TKDAST_VERSION_NUMBERS 4, 44, 0, 0
#define TKDAST_VERSION_TEXT "4.44.0.0"

#define TKDAST_COMPANY_NAME "Tessaran Development"
#define TKDAST_PRODUCT_NAME "Tessaran Kestrel Desk Assist"
#define TKDAST_COPYRIGHT "Copyright © Tessaran Development"
