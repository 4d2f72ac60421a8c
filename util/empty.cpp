// Placeholder translation unit for a layer that has no sources yet.
