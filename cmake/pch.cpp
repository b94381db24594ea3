// Exists so that the precompiled header has an object to belong to.
