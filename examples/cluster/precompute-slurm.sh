#!/bin/bash
# One pre-computed response set made by a Slurm array job: every task makes one shard of the
# set into the same folder on a shared file system. Submit it, then check the merged set:
#
#   sbatch examples/cluster/precompute-slurm.sh
#   quendarik precompute --verify /shared/sets/hall      # after the last task has ended
#
# The set: a 40 x 30 m hall, the listener on a 1 m grid at 1.2 m, 20 sources on the stage:
# 41 x 31 places x 20 sources = 25,420 responses.
#
# Sizing N, the number of tasks (--array=0-(N-1); the script reads N from Slurm):
#   - Run the set's first shard of a few hundred on one node first, e.g. with
#     --shard 0/200: its progress line gives the rate R in responses a second with C
#     threads. A response of the image model costs about 0.1 core-second at order 2 in a
#     hall of this size (measure: it grows with the order and the number of planes).
#   - A task makes about R responses a second, so it needs responses / (N x R) seconds.
#     Choose N so that this is well inside --time (half of it leaves room for a slow node):
#       N >= responses / (R x seconds of --time / 2)
#     25,420 responses at R = 0.8/s (8 threads x 0.1 core-s): N >= 25,420 / (0.8 x 1800) = 18.
#   - More tasks than that only help while nodes are free; each task loads the world and the
#     HRTF set once (about a second), so keep a task at some hundreds of responses at least.
#   - The disk: every task prints the bytes its shard needs and refuses to start when the
#     folder's file system has less free (--force overrides).
#
# A task that is stopped (time limit, preemption, a failed node) and run again, by
# `scontrol requeue` or a second sbatch of the same array, keeps the files already whole
# (--resume) and ends as if it had not been stopped.
#SBATCH --job-name=qk-precompute
#SBATCH --array=0-19
#SBATCH --cpus-per-task=8
#SBATCH --mem=1G
#SBATCH --time=01:00:00
#SBATCH --requeue
#SBATCH --output=precompute-%A-%a.log
set -euo pipefail

OUT=/shared/sets/hall
WORLD=/shared/worlds/hall.txt

# The material tables a world reads are made in the common folder when they are missing: give
# each task a folder of its own on the node, so that tasks never write the same tables at once.
export QK_COMMON_ROOT="${TMPDIR:-/tmp}/quendarik-${SLURM_ARRAY_JOB_ID}-${SLURM_ARRAY_TASK_ID}"

sources=()
for x in -9 -8 -7 -6 -5 -4 -3 -2 -1 0 1 2 3 4 5 6 7 8 9 10; do
  sources+=(--source "$x" 13 1.5)
done

srun quendarik precompute --world "$WORLD" --order 2 \
  --listener-grid -20:20:1 -15:15:1 1.2 "${sources[@]}" \
  --out "$OUT" --threads "$SLURM_CPUS_PER_TASK" \
  --shard "auto/${SLURM_ARRAY_TASK_COUNT}" --resume
