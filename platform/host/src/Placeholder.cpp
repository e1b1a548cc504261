// Placeholder until the first host source lands.
