// Encoder throughput (being written).
