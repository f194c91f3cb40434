// The numbers of the resources that the tests bring along.
#pragma once

#define IDD_MODULE_TEST 900

#define IDS_MODULE_TEST 9008
#define IDS_MODULE_TEST_ENGLISH 9009
#define IDS_MODULE_TEST_LAST 9007
