"""Speaker diarization: speaker vectors of sliding windows, grouped into voices, written into transcript segments.

Call in this order: `utils.process_vadsegments`, `clustering.compute_embeddings`, `clustering.cluster`,
`make_rttm.read_labels`, `make_rttm.merge_segments`, `make_rttm.merge_outputs`.
"""
