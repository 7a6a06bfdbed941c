-- What is stored where, and how far each of it would reach. Numbers that the calculator reads are kept as they are written.

CREATE TABLE chemical (
    name TEXT PRIMARY KEY,
    state TEXT NOT NULL CHECK (state IN ('G', 'L', 'S')),
    level_of_concern TEXT NOT NULL,  -- g/m3
    factor_ambient TEXT NOT NULL,    -- liquid factors, where the chemical has them
    factor_boiling TEXT NOT NULL,
    factor_molten TEXT NOT NULL,
    source TEXT NOT NULL
) WITHOUT ROWID;

CREATE TABLE facility (
    id INTEGER PRIMARY KEY,
    name TEXT NOT NULL UNIQUE,
    place TEXT NOT NULL
);

CREATE TABLE inventory (
    id INTEGER PRIMARY KEY,
    facility INTEGER NOT NULL REFERENCES facility,
    chemical TEXT NOT NULL REFERENCES chemical,
    container TEXT NOT NULL,
    amount TEXT NOT NULL,
    unit TEXT NOT NULL CHECK (unit IN ('LBS', 'KGS')),
    concentration TEXT NOT NULL,  -- percent by weight
    form TEXT NOT NULL,           -- of a solid
    temperature TEXT NOT NULL,    -- of a liquid
    dike_sqft TEXT NOT NULL
);

-- The calculator's parameter for the release of all that a container holds, in the standard worst-case weather. A gas or
-- powder is taken to escape in ten minutes.
CREATE VIEW release AS
SELECT inventory.id AS inventory,
       'SCREEN|' || level_of_concern || '|' || state || '|OPEN|3.35|MPH|' || amount || '|' || unit || '|' ||
       concentration || '|F|' || form || '|' || temperature || '|' || factor_ambient || '|' || factor_boiling || '|' ||
       factor_molten || '|' || iif(state = 'L' OR form = 'MOLTEN', '|', '10|MINUTES') || '|' || dike_sqft || '|' ||
       iif(dike_sqft = '', '', 'SQFT') || '|MI' AS parameter
FROM inventory JOIN chemical ON chemical.name = inventory.chemical;

-- The same in words, as "quil screen" and the desktop's threat zones read releases.
CREATE VIEW scenario AS
SELECT chemical, facility.name AS facility, facility.place, container,
       CASE state WHEN 'G' THEN 'gas' WHEN 'L' THEN 'liquid' ELSE 'solid' END AS state,
       level_of_concern || ' g/m3' AS level_of_concern,
       amount || iif(unit = 'KGS', ' kg', ' lb') AS amount,
       concentration, lower(form) AS solid_form, lower(temperature) AS liquid_temperature,
       factor_ambient, factor_boiling, factor_molten,
       iif(state = 'L' OR form = 'MOLTEN', '', '10 min') AS duration,
       iif(dike_sqft = '', '', dike_sqft || ' ft2') AS dike, 'yes' AS screening
FROM inventory JOIN chemical ON chemical.name = inventory.chemical JOIN facility ON facility.id = inventory.facility
ORDER BY inventory.id;

CREATE TABLE screening (
    inventory INTEGER PRIMARY KEY REFERENCES inventory ON DELETE CASCADE,
    distance TEXT NOT NULL,  -- miles as the calculator tells them: "1.9", "< .1" or "> 10"
    metres REAL NOT NULL,    -- the same without limits, for sorting
    screened TEXT NOT NULL DEFAULT CURRENT_TIMESTAMP
);
