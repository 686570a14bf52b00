// Parser throughput (being written).
