# filled by what lives here
