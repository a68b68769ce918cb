#!/usr/bin/env python3
"""Draws memory, rate and latency of a long run over time: plot.py SAMPLES.csv OUT (writes OUT.png and OUT.svg)."""
import csv
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt


def main():
    with open(sys.argv[1], newline="") as samples:
        rows = list(csv.DictReader(samples))
    minutes = [int(row["second"]) / 60 for row in rows]

    def column(name, scale=1.0):
        return [float(row[name]) * scale for row in rows]

    figure, (memory, rate, latency) = plt.subplots(3, 1, figsize=(10, 8), sharex=True, constrained_layout=True)
    memory.plot(minutes, column("rss_kib", 1 / 1024), color="tab:green")
    memory.set_ylabel("resident memory, MiB")
    memory.set_ylim(0, 1.2 * max(column("rss_kib", 1 / 1024)))
    rate.plot(minutes, column("frames_per_s", 1 / 1000), color="tab:blue")
    rate.set_ylabel("frames handed in, 1000/s")
    rate.set_ylim(0, 1.2 * max(column("frames_per_s", 1 / 1000)))
    latency.plot(minutes, column("p99_us"), color="tab:red", label="p99")
    latency.plot(minutes, column("p50_us"), color="tab:orange", label="p50")
    latency.set_ylabel("receive call to send, us")
    latency.set_yscale("log")
    latency.legend(loc="upper right")
    latency.set_xlabel("minutes")
    for axes in (memory, rate, latency):
        axes.grid(alpha=0.3)
    figure.suptitle("Line ID agent: mixed traffic, reconfiguration and client churn")
    for kind in ("png", "svg"):
        figure.savefig(f"{sys.argv[2]}.{kind}")


main()
