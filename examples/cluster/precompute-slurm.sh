#!/bin/bash
# One pre-computed response set made by a Slurm array job: every task makes one shard of the
# set into the same folder on a shared file system. Submit it, then check the merged set:
#
#   sbatch examples/cluster/precompute-slurm.sh
#   quendarik precompute --verify /shared/sets/hall      # after the last task has ended
#
# The set: a 40 x 30 m hall, reflections to order 8, the listener on a 0.25 m grid at 1.2 m,
# 20 sources on the stage: 161 x 121 places x 20 sources = 389,620 responses.
#
# Sizing N, the number of tasks (--array=0-(N-1); the script reads N from Slurm):
#   - The cost of one response, T core-seconds: make a small shard once on one node
#     (--shard 0/1000) and divide its CPU time by its responses. On a 2-core test machine the
#     image model took about 0.03 core-s a response in this hall at order 8, 0.003 at order 4
#     and 0.001 at order 2: the cost grows with the order and the planes, not with the grid.
#   - The work is responses x T core-seconds (here 389,620 x 0.03 = about 11,700). With C
#     threads a task and a wanted wall time W seconds a task:
#       N = responses x T / (C x W)        here 11,700 / (8 x 120) = about 12 for 2 minutes
#     and W well inside --time, so that a slow node still ends.
#   - Each task loads the world and the HRTF set once and measures three responses for the
#     job-size check: keep a task at some hundreds of responses at least.
#   - The disk: about 156 KB a response here, 61 GB for the set. Every task prints the bytes
#     its shard needs and refuses to start when the folder's file system has less free
#     (--force overrides).
#
# A task that is stopped (time limit, preemption, a failed node) and run again, by
# `scontrol requeue` or a second sbatch of the same array, keeps the files already whole
# (--resume) and ends as if it had not been stopped.
#SBATCH --job-name=qk-precompute
#SBATCH --array=0-11
#SBATCH --cpus-per-task=8
#SBATCH --mem=1G
#SBATCH --time=00:30:00
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

srun quendarik precompute --world "$WORLD" --order 8 \
  --listener-grid -20:20:0.25 -15:15:0.25 1.2 "${sources[@]}" \
  --out "$OUT" --threads "$SLURM_CPUS_PER_TASK" \
  --shard "auto/${SLURM_ARRAY_TASK_COUNT}" --resume
