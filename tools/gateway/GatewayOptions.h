#pragma once

#include <QString>

// Latency and fault rates of the simulated gateway, for all functions or for one.
// Each rate is a probability between 0 and 1, drawn once per request.
struct GatewayFaultRates {
    int latencyMs = 0;
    double failRate = 0;    // a reply whose status says the request failed
    double noreplyRate = 0; // no answer at all
    double dropRate = 0;    // the connection is closed instead of answering
};

struct GatewayOptions {
    int rows = 1000;         // positions, orders and trades generated each
    quint32 seed = 1;        // data and fault draws follow from it
    QString dbPath;          // empty: a fresh temporary SQLite file
    GatewayFaultRates faults;
    int pushIntervalMs = 10; // spacing of the state pushes of a placed order
};
