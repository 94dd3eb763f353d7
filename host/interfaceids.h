#pragma once

// Interface identifiers the host application matches on, byte for byte.
#define KELVORIN_SERIAL_DEVICE_IID "kelvorin.AbstractSerialDevice/4.4.5"
#define KELVORIN_CASH_CONTROL_IID "kelvorin.AbstractCashControl"
